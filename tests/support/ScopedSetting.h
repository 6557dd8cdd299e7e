#pragma once
// Sets a debug-database entry for the life of the scope.

#include <string>
#include <string_view>

#include "kivcore/debug/DebugDatabase.h"

namespace kivml::testing {

class ScopedSetting {
 public:
  ScopedSetting(std::string_view key, std::string_view value) : mKey(key) {
    kivcore::debug::DebugDatabase::Instance().SetEntry(std::string_view(mKey), value);
  }
  ~ScopedSetting() { kivcore::debug::DebugDatabase::Instance().RemoveEntry(std::string_view(mKey)); }
  ScopedSetting(const ScopedSetting&) = delete;
  ScopedSetting& operator=(const ScopedSetting&) = delete;

 private:
  const std::string mKey;
};

}  // namespace kivml::testing
