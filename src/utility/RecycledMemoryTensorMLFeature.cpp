#include "utility/RecycledMemoryTensorMLFeature.h"

#include <utility>

namespace kivml::utility {

RecycledMemoryTensorMLFeature::RecycledMemoryTensorMLFeature(
    std::shared_ptr<const kivcore::allocator::RecycledMemory> memory, uint64_t dataTypeSize, ShapeType shape,
    StrideType strides)
    : mMemory(std::move(memory)),
      mDataTypeSize(dataTypeSize),
      mShape(std::move(shape)),
      mStrides(std::move(strides)) {}

uint64_t RecycledMemoryTensorMLFeature::GetCount() const {
  if (!mMemory || mDataTypeSize == 0) {
    return 0;
  }
  return mMemory->Size() / mDataTypeSize;
}

kivcore::classref::InterfaceRef<IMLFeature> RecycledMemoryTensorMLFeature::GetFeatureRef() const {
  auto self = std::const_pointer_cast<kivcore::classref::UnknownBase>(GetSharedFromThis());
  return kivcore::classref::InterfaceRef<kivcore::classref::UnknownBase>(std::move(self)).Query<IMLFeature>();
}

void* RecycledMemoryTensorMLFeature::GetMutableData() {
  // The buffer is deliberately shared: writers change what every holder of it sees.
  return mMemory ? const_cast<char*>(mMemory->Buffer()) : nullptr;
}

}  // namespace kivml::utility
