#pragma once
// Well-known directories of the runtime.

#include "kivcore/filesupport/Dir.h"
#include "kivcore/kivcore_export.h"

namespace kivcore::filesupport::commondirs {

// Where the runtime's resource files are: the directory named by the environment variable
// KIVCORE_RESOURCES_DIR when it is set and not empty, otherwise the directory of the running executable
// (empty when neither is known). Read on every call.
KIVCORE_EXPORT Dir ResourcesDir();

}  // namespace kivcore::filesupport::commondirs
