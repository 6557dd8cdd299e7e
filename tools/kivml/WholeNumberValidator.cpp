#include "WholeNumberValidator.h"

#include <charconv>
#include <cstdint>
#include <limits>
#include <string>

namespace kivml::cli {

WholeNumberValidator::WholeNumberValidator() : CLI::Validator("") {
  func_ = [](std::string& text) {
    uint64_t value = 0;
    const char* const end = text.data() + text.size();
    const auto [last, error] = std::from_chars(text.data(), end, value);
    if (error == std::errc::result_out_of_range) {
      return "'" + text + "' is too large (at most " + std::to_string(std::numeric_limits<uint64_t>::max()) +
             ")";
    }
    if (text.empty() || error != std::errc() || last != end) {
      return "'" + text + "' is not a whole number (0, 1, 2, ...)";
    }
    return std::string();
  };
}

}  // namespace kivml::cli
