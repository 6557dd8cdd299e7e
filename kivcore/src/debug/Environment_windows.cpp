#include <cstdlib>
#include <string>

#include "Environment.h"
#include "kivcore/string/StringConversions.h"

namespace kivcore::debug::detail {

std::optional<std::string> GetEnvironmentUtf8(const char* name) {
  // Variable names are ASCII; widening them byte by byte is exact.
  std::wstring wideName;
  for (const char* p = name; *p != '\0'; ++p) {
    wideName.push_back(static_cast<wchar_t>(static_cast<unsigned char>(*p)));
  }
  const wchar_t* value = _wgetenv(wideName.c_str());
  if (value == nullptr) {
    return std::nullopt;
  }
  return string::ToStdString(string::WcharToUTF16(value));
}

}  // namespace kivcore::debug::detail
