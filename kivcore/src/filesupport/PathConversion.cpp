#include "PathConversion.h"

#include <string>
#include <string_view>

#include "kivcore/string/StringConversions.h"

namespace kivcore::filesupport::detail {

std::filesystem::path ToFilesystemPath(const wstring& path) {
  const u8string utf8 = string::UTF16to8(path);
  return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
}

wstring FromFilesystemPath(const std::filesystem::path& path) {
  const std::u8string utf8 = path.u8string();
  return string::UTF8to16(std::string_view(reinterpret_cast<const char*>(utf8.data()), utf8.size()));
}

}  // namespace kivcore::filesupport::detail
