#pragma once
// Describes one input or output of a model: its name and the kind of value it takes.

#include "kivcore/classref/UnknownBase.h"
#include "kivcore/utility/ImmutableString.h"

namespace kivml {

enum class FeatureKind : int {
  kTensor = 0,
  kOther = 1,
};

class IFeatureDescription : public kivcore::classref::Unknown {
 public:
  static constexpr kivcore::utility::Guid kIID{"2E318E22-0E2E-4505-B119-594B0B69DA16", 36};

  virtual kivcore::utility::ImmutableString GetName() const = 0;
  virtual FeatureKind GetKind() const = 0;
};

}  // namespace kivml
