#include "kivcore/filesupport/File.h"

#include <system_error>

#include "PathConversion.h"

namespace kivcore::filesupport {

File::File(const Dir& dir, const wstring& name) : mPath(Dir(dir, name).FullPath()) {}

bool File::Exists() const {
  std::error_code error;
  return !mPath.empty() && std::filesystem::is_regular_file(detail::ToFilesystemPath(mPath), error);
}

}  // namespace kivcore::filesupport
