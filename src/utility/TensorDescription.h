#pragma once
// A tensor description that holds its name, element type and shape as given.

#include <utility>

#include "kivcore/classref/Implements.h"
#include "kivml/ITensorFeatureDescription.h"

namespace kivml::utility {

class TensorDescription final : public kivcore::classref::Implements<ITensorFeatureDescription> {
 public:
  TensorDescription(kivcore::utility::ImmutableString name, kivcore::utility::Guid dataType,
                    DescriptionShapeType shape)
      : mName(std::move(name)), mDataType(dataType), mShape(std::move(shape)) {}

  kivcore::utility::ImmutableString GetName() const override { return mName; }
  FeatureKind GetKind() const override { return FeatureKind::kTensor; }
  kivcore::utility::Guid GetTensorDataType() const override { return mDataType; }
  DescriptionShapeType GetTensorShape() const override { return mShape; }

 private:
  kivcore::utility::ImmutableString mName;
  kivcore::utility::Guid mDataType;
  DescriptionShapeType mShape;
};

}  // namespace kivml::utility
