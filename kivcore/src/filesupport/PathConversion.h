#pragma once
// Wide library paths <-> std::filesystem::path, through UTF-8 (char8_t) so that the same code serves
// 16-bit (UTF-16) and 32-bit (UTF-32) wchar_t. Internal to the library.

#include <filesystem>

#include "kivcore/string/StringTypes.h"

namespace kivcore::filesupport::detail {

std::filesystem::path ToFilesystemPath(const wstring& path);
wstring FromFilesystemPath(const std::filesystem::path& path);

}  // namespace kivcore::filesupport::detail
