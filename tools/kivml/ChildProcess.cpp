#include "ChildProcess.h"

#include <cstdlib>
#include <sstream>
#include <system_error>

namespace kivml::cli {

std::optional<std::filesystem::path> ChildProcess::FindOnPath(const std::string& program) {
  const char* path = std::getenv("PATH");
  if (path == nullptr) {
    return std::nullopt;
  }
  std::stringstream folders(path);
  std::string folder;
  while (std::getline(folders, folder, PathListSeparator())) {
    std::error_code error;
    const std::filesystem::path candidate =
        std::filesystem::path(folder.empty() ? "." : folder) / ExecutableFileName(program);
    if (std::filesystem::is_regular_file(candidate, error)) {
      return candidate;
    }
  }
  return std::nullopt;
}

}  // namespace kivml::cli
