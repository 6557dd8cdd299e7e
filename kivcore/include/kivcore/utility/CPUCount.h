#pragma once

#include "kivcore/kivcore_export.h"

namespace kivcore::utility {

// Number of logical processors of the machine; at least 1.
KIVCORE_EXPORT unsigned int CPUCount() noexcept;

}  // namespace kivcore::utility
