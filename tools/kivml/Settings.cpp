#include "Settings.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <system_error>

#include "CLI11Include.h"
#include "Formatting.h"
#include "InputFile.h"
#include "ToolError.h"
#include "WholeNumberValidator.h"
#include "kivcore/debug/DebugDatabase.h"
#include "kivcore/debug/Trace.h"
#include "kivcore/string/StringConversions.h"

namespace kivml::cli {

namespace {

struct Entry {
  std::string key;
  std::string value;
  std::string origin;  // "--set 'KEY=VALUE'", "--settings 'FILE' line 3", for messages
};

bool IsWholeNumber(std::string_view text) {
  std::string trimmed(kivcore::string::TrimBlanks(text));
  return WholeNumberValidator()(trimmed).empty();
}

// Throws ToolError when the library would misread the value of a key it knows; warns of a key it does not
// know, which the library's database takes all the same.
void Check(const Entry& entry) {
  const kivml::settings::Setting* known = Settings::Find(entry.key);
  if (known == nullptr) {
    std::cerr << "kivml: warning: "
              << EscapeControlCharacters(entry.origin + ": kivml reads no setting '" + entry.key +
                                         "' (set all the same)")
              << '\n';
    return;
  }
  if (const auto expected = Settings::Misreading(*known, entry.value)) {
    throw ToolError(entry.origin + ": " + entry.key + " takes " + *expected + ", not '" + entry.value + "'");
  }
}

std::string ReadFile(const std::string& path) {
  if (const auto problem = InputFile::Problem(path)) {
    throw ToolError("cannot read the settings file '" + path + "': it " + *problem);
  }
  errno = 0;
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  if (in) {
    text << in.rdbuf();
  }
  if (!in) {
    const int error = errno;
    throw ToolError("cannot read the settings file '" + path +
                    "': " + (error != 0 ? std::generic_category().message(error) : "read failed"));
  }
  return text.str();
}

// Entries of a settings file as the library's loader reads it, which skips malformed lines without a word.
std::vector<Entry> ParseFile(const std::string& path) {
  const std::string text = ReadFile(path);
  std::vector<Entry> entries;
  for (const auto& parsed : kivcore::debug::DebugDatabase::ParseSettingsFile(text)) {
    const std::string origin = "--settings '" + path + "' line " + std::to_string(parsed.item);
    if (parsed.text.find('=') == std::string_view::npos) {
      throw ToolError(origin + ": expected 'key = value', not '" + std::string(parsed.text) + "'");
    }
    if (parsed.key.empty()) {
      throw ToolError(origin + ": the key before '=' is empty");
    }
    entries.push_back({std::string(parsed.key), std::string(parsed.value), origin});
  }
  return entries;
}

}  // namespace

const kivml::settings::Setting* Settings::Find(std::string_view key) {
  const auto& all = kivml::settings::kAllSettings;
  const auto found =
      std::find_if(all.begin(), all.end(), [&](const auto& setting) { return setting.key == key; });
  return found == all.end() ? nullptr : &*found;
}

std::optional<std::string> Settings::Misreading(const kivml::settings::Setting& setting,
                                                std::string_view value) {
  using kivml::settings::SettingKind;
  switch (setting.kind) {
    case SettingKind::kWholeNumber:
      return IsWholeNumber(value) ? std::nullopt : std::optional<std::string>("a whole number");
    case SettingKind::kTrueOrFalse:
      // The library is on for exactly "true", so "TRUE" or "1" would quietly leave it off.
      return value == "true" || value == "false" ? std::nullopt : std::optional<std::string>("true or false");
    case SettingKind::kOnUnlessOff:
      // The library is off for "false" or "0" and on for anything else, so "no" or "off" would turn it on.
      return value == "true" || value == "false" || value == "1" || value == "0"
                 ? std::nullopt
                 : std::optional<std::string>("true, false, 1 or 0");
  }
  return std::nullopt;
}

void WriteTraceLine(int level, const std::string& category, const std::string& message) {
  // Some messages end their own line (the GPU set-up's); the rest get one here.
  const bool ended = !message.empty() && message.back() == '\n';
  const std::string line =
      "[" + category + ":" + std::to_string(level) + "] " + message + (ended ? "" : "\n");
  std::fputs(line.c_str(), stderr);
}

void Settings::AddOptions(CLI::App& command) {
  command.add_option("--set", mEntries, "Set a debug-database entry, e.g. kivml.BatchSizeMultiplier=4")
      ->type_name("KEY=VALUE")
      ->group("Library settings");
  command.add_option("--settings", mFile, "Load debug-database entries from a file of 'key = value' lines")
      ->type_name("FILE")
      ->group("Library settings");
  command.add_flag("--profile", mProfile, "Have ONNX Runtime profile each session (KIVSE.ORT.ProfileModels)")
      ->group("Library settings");
  command.add_option("--trace", mTrace, "Trace levels as 'category=level,...' ('*' for every category)")
      ->type_name("SETTINGS")
      ->group("Library settings");
}

void Settings::Apply() const {
  // The file first, so that entries given one by one override it.
  std::vector<Entry> entries = mFile.empty() ? std::vector<Entry>() : ParseFile(mFile);
  for (const std::string& argument : mEntries) {
    const size_t equals = argument.find('=');
    if (equals == std::string::npos || equals == 0) {
      throw ToolError("--set '" + argument + "': expected KEY=VALUE");
    }
    entries.push_back({argument.substr(0, equals), argument.substr(equals + 1), "--set '" + argument + "'"});
  }
  for (const Entry& entry : entries) {
    Check(entry);
  }
  auto& database = kivcore::debug::DebugDatabase::Instance();
  for (const Entry& entry : entries) {
    database.SetEntry(std::string_view(entry.key), std::string_view(entry.value));
  }
  if (mProfile) {
    database.SetEntry(std::string_view("KIVSE.ORT.ProfileModels"), std::string_view("true"));
  }
  if (!mTrace.empty()) {
    if (kivcore::debug::ApplyTraceSettings(mTrace) == 0) {
      throw ToolError("--trace '" + mTrace + "': expected entries 'category=level' separated by ','");
    }
    kivcore::debug::SetTraceSink(WriteTraceLine);
  }
}

std::vector<std::string> Settings::Arguments() const {
  // Joined to their values, so that a value starting with '-' is not read as an option.
  std::vector<std::string> arguments;
  if (!mFile.empty()) {
    arguments.push_back("--settings=" + mFile);
  }
  for (const std::string& entry : mEntries) {
    arguments.push_back("--set=" + entry);
  }
  if (mProfile) {
    arguments.emplace_back("--profile");
  }
  if (!mTrace.empty()) {
    arguments.push_back("--trace=" + mTrace);
  }
  return arguments;
}

}  // namespace kivml::cli
