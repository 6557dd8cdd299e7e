#include <cstdlib>

#include "utility/ProcessEnvironment.h"

namespace kivml::utility {

void SetEnvironmentVariableUnlessSet(const char* name, const char* value) {
  setenv(name, value, /*overwrite=*/0);
}

}  // namespace kivml::utility
