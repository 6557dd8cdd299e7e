#include <filesystem>
#include <system_error>

#include "ExecutablePath.h"
#include "PathConversion.h"

namespace kivcore::filesupport::detail {

wstring ExecutablePath() {
  std::error_code error;
  const std::filesystem::path executable = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? wstring() : FromFilesystemPath(executable);
}

}  // namespace kivcore::filesupport::detail
