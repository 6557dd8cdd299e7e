#pragma once

#include <typeinfo>

#include "kivcore/kivcore_export.h"
#include "kivcore/string/StringTypes.h"

namespace kivcore::debug {

// Readable (demangled) name of a type, such as "kivml::IMLFeature".
KIVCORE_EXPORT u8string GetTypeName(const std::type_info& type);

}  // namespace kivcore::debug
