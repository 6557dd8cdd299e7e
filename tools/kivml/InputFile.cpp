#include "InputFile.h"

#include <system_error>

#include "ToolError.h"

namespace kivml::cli {

std::optional<std::string> InputFile::Problem(const std::filesystem::path& file) {
  using Type = std::filesystem::file_type;
  std::error_code error;
  const std::filesystem::file_status status = std::filesystem::status(file, error);
  switch (status.type()) {
    case Type::regular:
      return std::nullopt;
    case Type::not_found:
      return "does not exist";
    case Type::directory:
      return "is a directory, not a file";
    case Type::character:
      return "is a character device, not a regular file";
    case Type::block:
      return "is a block device, not a regular file";
    case Type::fifo:
      return "is a FIFO, not a regular file";
    case Type::socket:
      return "is a socket, not a regular file";
    default:
      return error ? "cannot be examined: " + error.message() : "is not a regular file";
  }
}

void InputFile::Require(const std::filesystem::path& file, std::string_view role) {
  if (const auto problem = Problem(file)) {
    throw ToolError(std::string(role) + " '" + file.string() + "' " + *problem);
  }
}

}  // namespace kivml::cli
