#pragma once
// Files the tool reads (models, .npy inputs, settings): a path that names something other than a regular
// file is reported as what it is (a directory, a device), not as missing.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace kivml::cli {

class InputFile {
 public:
  // Nothing for a regular file (or a link to one); otherwise what is wrong, as a predicate: "does not
  // exist", "is a directory, not a file", "is a character device, not a regular file", ...
  static std::optional<std::string> Problem(const std::filesystem::path& file);
  // Throws ToolError "<role> '<file>' <problem>" unless `file` is a regular file.
  static void Require(const std::filesystem::path& file, std::string_view role);
};

}  // namespace kivml::cli
