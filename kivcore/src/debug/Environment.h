#pragma once
// Platform seam: reading the process environment as UTF-8 (Windows reads the wide environment so that
// paths outside the ANSI code page survive). Internal to the library.

#include <optional>
#include <string>

namespace kivcore::debug::detail {

// The value of environment variable `name` in UTF-8, or nothing when it is not set.
std::optional<std::string> GetEnvironmentUtf8(const char* name);

}  // namespace kivcore::debug::detail
