#pragma once

#include "kivml/customoperators/CustomOperatorRegistrar.h"

namespace kivml::customoperators {

// Closes the table to further registration; run by the library's "kivml::preflight" initializer.
void CloseCustomOpRegistration() noexcept;

}  // namespace kivml::customoperators
