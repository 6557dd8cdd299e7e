#pragma once
// Process-wide debug settings that users change without recompiling: string keys ("kivml.BatchSize
// Multiplier", "KIVSE.ORT.ProfileModels") with string values kept exactly as given (no case folding, no
// trimming on SetEntry). Instance() loads, on first use and in this order (later entries win):
//   1. the file named by KIVCORE_DEBUG_FILE: lines "key = value"; blank lines and lines whose first
//      non-blank character is '#' are skipped; blanks around key and value are trimmed;
//   2. KIVCORE_DEBUG_SETTINGS="key=value;key2=value2" (blanks around key and value trimmed).
// GetChangeCount() moves on every change, so readers may cache what they parse from the values.
// All members are safe to call from any thread.

#include <atomic>
#include <cstdint>
#include <map>
#include <shared_mutex>
#include <string>
#include <string_view>
#include <vector>

#include "kivcore/kivcore_export.h"
#include "kivcore/string/StringTypes.h"

namespace kivcore::debug {

class KIVCORE_EXPORT DebugDatabase {
 public:
  static constexpr const char* kFileVariable = "KIVCORE_DEBUG_FILE";
  static constexpr const char* kSettingsVariable = "KIVCORE_DEBUG_SETTINGS";

  // The process-wide database (never destroyed, so usable from static constructors and destructors).
  static DebugDatabase& Instance();

  // An empty database; Instance() is the one the runtime reads.
  DebugDatabase() = default;
  DebugDatabase(const DebugDatabase&) = delete;
  DebugDatabase& operator=(const DebugDatabase&) = delete;

  bool HasEntry(const u8string& key) const;
  // The value, or "" when the key is absent.
  u8string GetEntry(const u8string& key) const;
  u8string GetEntry(const u8string& key, const u8string& defaultValue) const;
  void SetEntry(const u8string& key, const u8string& value);
  // Returns whether the key was present.
  bool RemoveEntry(const u8string& key);
  uint64_t GetChangeCount() const noexcept { return mChangeCount.load(std::memory_order_acquire); }

  // The same on std::string keys and values.
  bool HasEntry(std::string_view key) const;
  std::string GetEntry(std::string_view key) const;
  std::string GetEntry(std::string_view key, std::string_view defaultValue) const;
  void SetEntry(std::string_view key, std::string_view value);
  bool RemoveEntry(std::string_view key);

  // Loads a settings file (path in UTF-8); returns false when it cannot be read.
  bool LoadFromFile(const std::string& path);
  // Loads text in the settings-file format; returns how many entries it set.
  size_t LoadFromString(std::string_view text);
  // Loads "key=value;key2=value2"; returns how many entries it set.
  size_t LoadFromSettingsString(std::string_view settings);
  // Loads KIVCORE_DEBUG_FILE, then KIVCORE_DEBUG_SETTINGS, as Instance() does on first use.
  void LoadFromEnvironment();

  // One item of a settings text as the loaders read it; views into that text.
  struct ParsedEntry {
    size_t item;            // 1-based: the line of a settings file, the place in a settings string
    std::string_view text;  // the item, blanks trimmed
    std::string_view key;   // empty when the item is not "key = value": the loaders skip it silently
    std::string_view value;
  };
  // The items of `text` in the settings-file format, blank and comment lines left out, so that a tool
  // can say what the loaders would skip without a word.
  static std::vector<ParsedEntry> ParseSettingsFile(std::string_view text);

 private:
  static std::vector<ParsedEntry> ParseEntries(std::string_view text, char separator);
  // Sets the well-formed entries; returns how many.
  size_t Load(const std::vector<ParsedEntry>& entries);

  mutable std::shared_mutex mMutex;
  std::map<u8string, u8string, std::less<>> mEntries;  // guarded by mMutex
  std::atomic<uint64_t> mChangeCount{0};               // moved while mMutex is held exclusively
};

}  // namespace kivcore::debug
