#include <cstdlib>

#include "Environment.h"

namespace kivcore::debug::detail {

std::optional<std::string> GetEnvironmentUtf8(const char* name) {
  const char* value = std::getenv(name);
  if (value == nullptr) {
    return std::nullopt;
  }
  return std::string(value);
}

}  // namespace kivcore::debug::detail
