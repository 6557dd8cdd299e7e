#pragma once
// One value passed into or out of a model. Tensor values also implement ITensorMLFeatureAccessor and,
// where writable, ITensorMLFeatureModifier; query for those to read them.

#include "kivcore/classref/UnknownBase.h"

namespace kivml {

class IMLFeature : public kivcore::classref::Unknown {
 public:
  static constexpr kivcore::utility::Guid kIID{"E912C85C-8EC1-4573-BBB7-858280564A6E", 36};
};

}  // namespace kivml
