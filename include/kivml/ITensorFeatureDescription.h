#pragma once
// Describes a tensor input or output: element type (one of the type ids of TensorFeatureTypes.h) and shape,
// where -1 marks a free dimension.

#include "kivml/IFeatureDescription.h"
#include "kivml/TensorFeatureTypes.h"

namespace kivml {

class ITensorFeatureDescription : public IFeatureDescription {
 public:
  static constexpr kivcore::utility::Guid kIID{"FEA5CF5C-66EE-4BE9-8F2F-DC96D3F970DB", 36};
  using ParentInterface = IFeatureDescription;

  virtual kivcore::utility::Guid GetTensorDataType() const = 0;
  virtual DescriptionShapeType GetTensorShape() const = 0;
};

}  // namespace kivml
