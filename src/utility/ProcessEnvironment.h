#pragma once
// The process's environment variables, behind one seam per platform.

namespace kivml::utility {

// Sets `name` to `value` unless the process already has the variable (whatever its value): a value the
// host set is its decision and stands.
void SetEnvironmentVariableUnlessSet(const char* name, const char* value);

}  // namespace kivml::utility
