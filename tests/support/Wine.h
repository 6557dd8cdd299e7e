#pragma once
// Whether the tests run under Wine, which stands in for Windows on machines without it but does not do
// everything Windows does.

#if defined(_WIN32)
#include <windows.h>
#endif

namespace kivml::testing {

inline bool RunningUnderWine() {
#if defined(_WIN32)
  const HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
  return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
#else
  return false;
#endif
}

}  // namespace kivml::testing
