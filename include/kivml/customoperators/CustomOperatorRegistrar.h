#pragma once
// Registry of custom ONNX operator definitions by name. Modules register their operators by defining a
// static CustomOpRegistrar; registration closes when the library's "kivml::preflight" initializer runs,
// which comes after every initializer named "kivml::customoperatordefs::...". A registration after that,
// or of a name already taken, raises a debug assertion and changes nothing.

#include <unordered_map>

#include "kivcore/allocator/STLAllocator.h"
#include "kivcore/utility/Guid.h"
#include "kivcore/utility/ImmutableString.h"
#include "kivml/kivml_export.h"

namespace kivml::customoperators {

using CustomOpMap =
    std::unordered_map<kivcore::utility::ImmutableString, kivcore::utility::Guid,
                       std::hash<kivcore::utility::ImmutableString>, std::equal_to<>,
                       kivcore::allocator::STLAllocator<
                           std::pair<const kivcore::utility::ImmutableString, kivcore::utility::Guid>>>;

class CustomOpRegistrar {
 public:
  // Registers `name` with `id`; never throws.
  KIVML_EXPORT CustomOpRegistrar(kivcore::utility::ImmutableString name, kivcore::utility::Guid id);
  // Registrars carry no state: assignment has nothing to do.
  KIVML_EXPORT CustomOpRegistrar& operator=(const CustomOpRegistrar& other);
};

// A copy of every registration so far.
KIVML_EXPORT CustomOpMap GetRegisteredCustomOps();

}  // namespace kivml::customoperators
