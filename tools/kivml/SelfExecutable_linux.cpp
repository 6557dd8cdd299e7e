#include "SelfExecutable.h"

#include <system_error>

#include "ToolError.h"

namespace kivml::cli {

std::filesystem::path SelfExecutable::Path() {
  // argv[0] may be a bare name found on the PATH, or relative to a folder the tool has since left.
  std::error_code error;
  std::filesystem::path path = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error) {
    throw ToolError("cannot find the kivml program itself (/proc/self/exe): " + error.message());
  }
  return path;
}

}  // namespace kivml::cli
