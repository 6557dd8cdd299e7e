#include "Settings.h"

#include <cstdio>

#include "CLI11Include.h"
#include "ToolError.h"
#include "kivcore/debug/DebugDatabase.h"
#include "kivcore/debug/Trace.h"

namespace kivml::cli {

void WriteTraceLine(int level, const std::string& category, const std::string& message) {
  const std::string line = "[" + category + ":" + std::to_string(level) + "] " + message + "\n";
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
  auto& database = kivcore::debug::DebugDatabase::Instance();
  // The file first, so that entries given one by one override it.
  if (!mFile.empty() && !database.LoadFromFile(mFile)) {
    throw ToolError("cannot read the settings file '" + mFile + "'");
  }
  for (const std::string& entry : mEntries) {
    const size_t equals = entry.find('=');
    if (equals == std::string::npos || equals == 0) {
      throw ToolError("--set '" + entry + "': expected KEY=VALUE");
    }
    database.SetEntry(std::string_view(entry).substr(0, equals), std::string_view(entry).substr(equals + 1));
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
