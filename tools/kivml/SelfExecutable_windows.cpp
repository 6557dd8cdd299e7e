#include "SelfExecutable.h"

#include <windows.h>

#include <string>
#include <system_error>

#include "ToolError.h"

namespace kivml::cli {

std::filesystem::path SelfExecutable::Path() {
  // A path may be longer than MAX_PATH; the call says so only by filling the whole buffer.
  std::wstring buffer(MAX_PATH, L'\0');
  while (true) {
    const DWORD length = GetModuleFileNameW(nullptr, buffer.data(), static_cast<DWORD>(buffer.size()));
    if (length == 0) {
      throw ToolError("cannot find the kivml program itself: " +
                      std::system_category().message(static_cast<int>(GetLastError())));
    }
    if (length < buffer.size()) {
      buffer.resize(length);
      return std::filesystem::path(buffer);
    }
    buffer.resize(buffer.size() * 2);
  }
}

}  // namespace kivml::cli
