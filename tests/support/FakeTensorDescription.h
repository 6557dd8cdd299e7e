#pragma once
// A tensor description with a fixed name, element type and shape, for tests.

#include <initializer_list>
#include <utility>

#include "kivcore/classref/Implements.h"
#include "kivml/IMLModel.h"
#include "kivml/ITensorFeatureDescription.h"

namespace kivml::testing {

class FakeTensorDescription final : public kivcore::classref::Implements<ITensorFeatureDescription> {
 public:
  FakeTensorDescription(const char* name, kivcore::utility::Guid dataType,
                        std::initializer_list<int64_t> shape)
      : mName(kivcore::utility::ImmutableString::Create(name)), mDataType(dataType), mShape(shape) {}

  kivcore::utility::ImmutableString GetName() const override { return mName; }
  FeatureKind GetKind() const override { return FeatureKind::kTensor; }
  kivcore::utility::Guid GetTensorDataType() const override { return mDataType; }
  DescriptionShapeType GetTensorShape() const override { return mShape; }

 private:
  kivcore::utility::ImmutableString mName;
  kivcore::utility::Guid mDataType;
  DescriptionShapeType mShape;
};

inline kivcore::classref::InterfaceRef<ITensorFeatureDescription> MakeDescription(
    const char* name, kivcore::utility::Guid dataType, std::initializer_list<int64_t> shape) {
  return kivcore::classref::MakeInterfaceRef<ITensorFeatureDescription>(
      kivcore::classref::CreateObject<FakeTensorDescription>(name, dataType, shape));
}

}  // namespace kivml::testing
