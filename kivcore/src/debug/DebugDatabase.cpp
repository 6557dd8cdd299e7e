#include "kivcore/debug/DebugDatabase.h"

#include <filesystem>
#include <fstream>
#include <mutex>
#include <optional>

#include "Environment.h"
#include "kivcore/string/StringConversions.h"

namespace kivcore::debug {
namespace {}  // namespace

DebugDatabase& DebugDatabase::Instance() {
  static DebugDatabase* instance = [] {
    auto* database = new DebugDatabase();
    database->LoadFromEnvironment();
    return database;
  }();
  return *instance;
}

bool DebugDatabase::HasEntry(const u8string& key) const {
  std::shared_lock lock(mMutex);
  return mEntries.find(key) != mEntries.end();
}

u8string DebugDatabase::GetEntry(const u8string& key) const {
  return GetEntry(key, u8string());
}

u8string DebugDatabase::GetEntry(const u8string& key, const u8string& defaultValue) const {
  std::shared_lock lock(mMutex);
  const auto it = mEntries.find(key);
  return it != mEntries.end() ? it->second : defaultValue;
}

void DebugDatabase::SetEntry(const u8string& key, const u8string& value) {
  std::unique_lock lock(mMutex);
  const auto [it, inserted] = mEntries.try_emplace(key, value);
  if (!inserted) {
    if (it->second == value) {
      return;
    }
    it->second = value;
  }
  mChangeCount.fetch_add(1, std::memory_order_release);
}

bool DebugDatabase::RemoveEntry(const u8string& key) {
  std::unique_lock lock(mMutex);
  if (mEntries.erase(key) == 0) {
    return false;
  }
  mChangeCount.fetch_add(1, std::memory_order_release);
  return true;
}

bool DebugDatabase::HasEntry(std::string_view key) const {
  return HasEntry(string::ToU8(key));
}

std::string DebugDatabase::GetEntry(std::string_view key) const {
  return string::ToStdString(GetEntry(string::ToU8(key)));
}

std::string DebugDatabase::GetEntry(std::string_view key, std::string_view defaultValue) const {
  return string::ToStdString(GetEntry(string::ToU8(key), string::ToU8(defaultValue)));
}

void DebugDatabase::SetEntry(std::string_view key, std::string_view value) {
  SetEntry(string::ToU8(key), string::ToU8(value));
}

bool DebugDatabase::RemoveEntry(std::string_view key) {
  return RemoveEntry(string::ToU8(key));
}

bool DebugDatabase::LoadFromFile(const std::string& path) {
  // Through char8_t so that the UTF-8 path survives on Windows too.
  const std::filesystem::path filePath(std::u8string(path.begin(), path.end()));
  std::ifstream file(filePath, std::ios::binary);
  if (!file) {
    return false;
  }
  std::string text;
  char chunk[4096];
  while (file.read(chunk, sizeof(chunk)) || file.gcount() > 0) {
    text.append(chunk, static_cast<size_t>(file.gcount()));
  }
  if (file.bad()) {
    return false;
  }
  LoadFromString(text);
  return true;
}

size_t DebugDatabase::LoadFromString(std::string_view text) {
  return Load(ParseSettingsFile(text));
}

std::vector<DebugDatabase::ParsedEntry> DebugDatabase::ParseSettingsFile(std::string_view text) {
  constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
  if (text.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
    text.remove_prefix(kByteOrderMark.size());
  }
  return ParseEntries(text, '\n');
}

size_t DebugDatabase::LoadFromSettingsString(std::string_view settings) {
  return Load(ParseEntries(settings, ';'));
}

void DebugDatabase::LoadFromEnvironment() {
  if (const std::optional<std::string> file = detail::GetEnvironmentUtf8(kFileVariable);
      file && !file->empty()) {
    LoadFromFile(*file);
  }
  if (const std::optional<std::string> settings = detail::GetEnvironmentUtf8(kSettingsVariable)) {
    LoadFromSettingsString(*settings);
  }
}

std::vector<DebugDatabase::ParsedEntry> DebugDatabase::ParseEntries(std::string_view text, char separator) {
  std::vector<ParsedEntry> entries;
  for (size_t item = 1; !text.empty(); ++item) {
    const size_t end = text.find(separator);
    const std::string_view entry = string::TrimBlanks(text.substr(0, end));
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    if (entry.empty() || entry.front() == '#') {
      continue;
    }
    ParsedEntry parsed{item, entry, {}, {}};
    if (const size_t equals = entry.find('='); equals != std::string_view::npos) {
      parsed.key = string::TrimBlanks(entry.substr(0, equals));
      parsed.value = string::TrimBlanks(entry.substr(equals + 1));
    }
    entries.push_back(parsed);
  }
  return entries;
}

size_t DebugDatabase::Load(const std::vector<ParsedEntry>& entries) {
  size_t loaded = 0;
  for (const ParsedEntry& entry : entries) {
    if (!entry.key.empty()) {
      SetEntry(entry.key, entry.value);
      ++loaded;
    }
  }
  return loaded;
}

}  // namespace kivcore::debug
