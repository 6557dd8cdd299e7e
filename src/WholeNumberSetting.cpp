#include "WholeNumberSetting.h"

#include <charconv>
#include <string>

#include "kivcore/debug/DebugDatabase.h"
#include "kivcore/string/StringConversions.h"

namespace kivml {

std::optional<uint64_t> ReadWholeNumberSetting(std::string_view key) {
  const auto& database = kivcore::debug::DebugDatabase::Instance();
  if (!database.HasEntry(key)) {
    return std::nullopt;
  }
  const std::string entry = database.GetEntry(key);
  const std::string_view text = kivcore::string::TrimBlanks(entry);
  uint64_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [last, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || last != end) {
    return std::nullopt;
  }
  return value;
}

}  // namespace kivml
