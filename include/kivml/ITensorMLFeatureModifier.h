#pragma once

#include "kivcore/classref/UnknownBase.h"

namespace kivml {

// Write access to a tensor feature's elements. Writers must be serialised by the feature's owner.
class ITensorMLFeatureModifier : public kivcore::classref::Unknown {
 public:
  static constexpr kivcore::utility::Guid kIID{"28600E61-8870-4ABC-9334-2087CCC69E54", 36};

  // The same first byte as ITensorMLFeatureAccessor::GetData, writable; null when there is no buffer.
  virtual void* GetMutableData() = 0;
};

}  // namespace kivml
