#include "kivml/utility/TensorFactories.h"

#include <cstring>
#include <utility>

#include "kivcore/config/NullPtrException.h"
#include "kivcore/debug/TypeName.h"
#include "kivml/ITensorFeatureDescription.h"
#include "kivml/utility/TensorLayout.h"
#include "utility/RecycledMemoryTensorMLFeature.h"

namespace kivml::utility {

using kivcore::classref::InterfaceRef;

InterfaceRef<IMLFeature> CreateTensor(std::shared_ptr<const kivcore::allocator::RecycledMemory> data,
                                      uint64_t dataTypeSize, ShapeType shape, StrideType strides) {
  auto tensor = kivcore::classref::CreateObject<RecycledMemoryTensorMLFeature>(
      std::move(data), dataTypeSize, std::move(shape), std::move(strides));
  return kivcore::classref::MakeInterfaceRef<IMLFeature>(tensor);
}

InterfaceRef<IMLFeature> CreatePackedTensor(std::shared_ptr<const kivcore::allocator::RecycledMemory> data,
                                            uint64_t dataTypeSize, ShapeType shape) {
  StrideType strides = CalculatePackedStrides(shape);
  return CreateTensor(std::move(data), dataTypeSize, std::move(shape), std::move(strides));
}

FeatureContainerVector CreateDummyTensors(const FeatureDescriptionVector& descriptions) {
  FeatureContainerVector dummies;
  dummies.reserve(descriptions.size());
  for (const auto& description : descriptions) {
    const auto tensorDescription = description.Query<ITensorFeatureDescription>();
    if (!tensorDescription) {
      kivcore::config::DoThrowNullPtrException(
          kivcore::debug::GetTypeName(typeid(ITensorFeatureDescription)));
    }
    const uint64_t elementSize = GetTensorDataTypeSize(tensorDescription->GetTensorDataType());
    const uint64_t byteSize = CalculateTensorFeatureSize(tensorDescription);
    auto memory = kivcore::allocator::RecycledMemory::Create(byteSize);
    if (byteSize > 0) {
      std::memset(memory->Buffer(), 0, byteSize);
    }
    const DescriptionShapeType describedShape = tensorDescription->GetTensorShape();
    ShapeType shape(describedShape.begin(), describedShape.end());
    dummies.push_back(
        {tensorDescription->GetName(), CreatePackedTensor(std::move(memory), elementSize, std::move(shape))});
  }
  return dummies;
}

}  // namespace kivml::utility
