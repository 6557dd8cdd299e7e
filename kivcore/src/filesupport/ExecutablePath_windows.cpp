#include <windows.h>

#include <vector>

#include "ExecutablePath.h"
#include "kivcore/string/StringConversions.h"

namespace kivcore::filesupport::detail {

wstring ExecutablePath() {
  // Long paths may exceed MAX_PATH: grow until the name fits.
  std::vector<wchar_t> buffer(MAX_PATH);
  for (;;) {
    const DWORD length = ::GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
    if (length == 0) {
      return wstring();
    }
    if (length < buffer.size()) {
      return wstring(buffer.data(), length);
    }
    if (buffer.size() >= 32768) {
      return wstring();
    }
    buffer.resize(buffer.size() * 2);
  }
}

}  // namespace kivcore::filesupport::detail
