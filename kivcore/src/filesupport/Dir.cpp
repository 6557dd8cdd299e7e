#include "kivcore/filesupport/Dir.h"

#include <system_error>

#include "PathConversion.h"

namespace kivcore::filesupport {

Dir::Dir(const wstring& path) : mPath(path) {}

Dir::Dir(const Dir& parent, const wstring& subdir)
    : mPath(parent.mPath.empty() ? subdir
                                 : detail::FromFilesystemPath(detail::ToFilesystemPath(parent.mPath) /
                                                              detail::ToFilesystemPath(subdir))) {}

bool Dir::Exists() const {
  std::error_code error;
  return !mPath.empty() && std::filesystem::is_directory(detail::ToFilesystemPath(mPath), error);
}

}  // namespace kivcore::filesupport
