#include <cstdlib>

#include "utility/ProcessEnvironment.h"

namespace kivml::utility {

void SetEnvironmentVariableUnlessSet(const char* name, const char* value) {
  size_t length = 0;
  if (getenv_s(&length, nullptr, 0, name) == 0 && length == 0) {
    _putenv_s(name, value);
  }
}

}  // namespace kivml::utility
