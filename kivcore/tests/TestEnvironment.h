#pragma once
// Setting and clearing process environment variables from tests, on either platform.

#include <cstdlib>

namespace kivcore::test {

// True on success. The value replaces any earlier one.
inline bool SetEnvironment(const char* name, const char* value) {
#if defined(_WIN32)
  return _putenv_s(name, value) == 0;
#else
  return setenv(name, value, 1) == 0;
#endif
}

inline void ClearEnvironment(const char* name) {
#if defined(_WIN32)
  _putenv_s(name, "");  // an empty value removes the variable
#else
  unsetenv(name);
#endif
}

}  // namespace kivcore::test
