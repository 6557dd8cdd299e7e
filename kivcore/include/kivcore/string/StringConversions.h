#pragma once
// Conversions between the library's UTF-8 and wide strings and the standard ones. Invalid input
// sequences become U+FFFD rather than failing: these serve names and messages, not data.

#include <string>
#include <string_view>

#include "kivcore/kivcore_export.h"
#include "kivcore/string/StringTypes.h"

namespace kivcore::string {

KIVCORE_EXPORT wstring WcharToUTF16(const wchar_t* text);
KIVCORE_EXPORT wstring AsciiToUTF16(const char* text, size_t length);
KIVCORE_EXPORT std::wstring UTF16ToWstring(const wstring& text);
KIVCORE_EXPORT u8string UTF16to8(const wstring& text);
KIVCORE_EXPORT wstring UTF8to16(std::string_view utf8);

KIVCORE_EXPORT u8string ToU8(std::string_view text);
// `text` without leading and trailing blanks (space, tab, CR, LF, FF, VT).
KIVCORE_EXPORT std::string_view TrimBlanks(std::string_view text) noexcept;
KIVCORE_EXPORT std::string ToStdString(const u8string& text);
KIVCORE_EXPORT std::string ToStdString(const wstring& text);

// Applies each (from, to) pair in turn, replacing every occurrence; pairs with an empty `from` are skipped.
KIVCORE_EXPORT std::string ReplaceInString(const std::string& text, const std::string& from1,
                                           const std::string& to1, const std::string& from2,
                                           const std::string& to2, const std::string& from3,
                                           const std::string& to3, const std::string& from4,
                                           const std::string& to4, const std::string& from5,
                                           const std::string& to5);

}  // namespace kivcore::string
