#pragma once
// Numeric settings of the library, read from the debug database.

#include <cstdint>
#include <optional>
#include <string_view>

namespace kivml {

// The entry `key` as a whole number, blanks around it allowed; nothing when the entry is missing or is
// not a whole number that fits 64 bits.
std::optional<uint64_t> ReadWholeNumberSetting(std::string_view key);

}  // namespace kivml
