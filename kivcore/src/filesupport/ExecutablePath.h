#pragma once
// Platform seam: where the running executable lives. Internal to the library.

#include "kivcore/string/StringTypes.h"

namespace kivcore::filesupport::detail {

// Full path of the running executable, or empty when the platform cannot tell.
wstring ExecutablePath();

}  // namespace kivcore::filesupport::detail
