#pragma once
// A failure the user can act on (a missing file, a mistyped option, a request the model refuses): main
// prints its message as it stands and exits with status 1, without a stack of library context.

#include <stdexcept>
#include <string>

namespace kivml::cli {

class ToolError : public std::runtime_error {
 public:
  explicit ToolError(const std::string& message) : std::runtime_error(message) {}
};

}  // namespace kivml::cli
