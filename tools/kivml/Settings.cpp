#include "Settings.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string_view>
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

enum class ValueKind { kWholeNumber, kTrueOrFalse };

struct KnownKey {
  std::string_view key;
  ValueKind kind;
};

// The keys the library reads, and how it reads them: whole numbers as the library parses them (blanks
// around allowed), and profiling only on for exactly "true", so anything but "true" or "false" is a slip.
constexpr std::array<KnownKey, 3> kKnownKeys{{
    {"kivml.BatchSizeMultiplier", ValueKind::kWholeNumber},
    {"kivml.IdleSpinMicroseconds", ValueKind::kWholeNumber},
    {"KIVSE.ORT.ProfileModels", ValueKind::kTrueOrFalse},
}};

bool IsWholeNumber(std::string_view text) {
  std::string trimmed(kivcore::string::TrimBlanks(text));
  return WholeNumberValidator()(trimmed).empty();
}

// Throws ToolError when the library would misread the value of a key it knows; warns of a key it does not
// know, which the library's database takes all the same.
void Check(const Entry& entry) {
  const auto known = std::find_if(kKnownKeys.begin(), kKnownKeys.end(),
                                  [&](const KnownKey& candidate) { return candidate.key == entry.key; });
  if (known == kKnownKeys.end()) {
    std::cerr << "kivml: warning: "
              << EscapeControlCharacters(entry.origin + ": kivml reads no setting '" + entry.key +
                                         "' (set all the same)")
              << '\n';
    return;
  }
  if (known->kind == ValueKind::kWholeNumber && !IsWholeNumber(entry.value)) {
    throw ToolError(entry.origin + ": " + entry.key + " takes a whole number, not '" + entry.value + "'");
  }
  if (known->kind == ValueKind::kTrueOrFalse && entry.value != "true" && entry.value != "false") {
    throw ToolError(entry.origin + ": " + entry.key + " takes true or false, not '" + entry.value + "'");
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

}  // namespace kivml::cli
