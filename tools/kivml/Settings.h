#pragma once
// The library settings every command takes: debug-database entries (--set, --settings), model profiling
// (--profile) and tracing (--trace). They must be applied before the library initialises and before any
// model is made, since the library reads some of them only then.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "kivml/Settings.h"

namespace CLI {
class App;
}

namespace kivml::cli {

// Writes one trace line to stderr as "[category:level] message", in one write so that lines from several
// threads do not interleave.
void WriteTraceLine(int level, const std::string& category, const std::string& message);

class Settings {
 public:
  // Registers the options on one (sub)command; every command shares this object.
  void AddOptions(CLI::App& command);
  // Throws ToolError for a malformed entry or settings-file line, a value the library would misread for a
  // key it knows, an unreadable settings file or trace text without entries; warns of unknown keys.
  void Apply() const;
  // The options that give another run of the tool the same settings, in an order that applies them alike.
  std::vector<std::string> Arguments() const;

  // The library's setting of that key; nothing for a key the library does not read.
  static const kivml::settings::Setting* Find(std::string_view key);
  // What the setting takes ("a whole number"), when the library would read `value` otherwise than its
  // writer meant; nothing when the value reads as written.
  static std::optional<std::string> Misreading(const kivml::settings::Setting& setting,
                                               std::string_view value);

 private:
  std::vector<std::string> mEntries;  // "KEY=VALUE"
  std::string mFile;
  std::string mTrace;
  bool mProfile = false;
};

}  // namespace kivml::cli
