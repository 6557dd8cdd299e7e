#pragma once
// The library's CPU tensor: elements in a shared RecycledMemory buffer. Made only by the factories of
// TensorFactories.h. Shape, strides and buffer are held as given, with no check tying them together; the
// count comes from the buffer, not the shape. The buffer is shared, never copied: writing through the
// modifier changes what every holder of the buffer sees. Immutable otherwise, so readers need no lock.

#include <memory>

#include "kivcore/allocator/RecycledMemory.h"
#include "kivcore/classref/Implements.h"
#include "kivml/IMLFeature.h"
#include "kivml/ITensorMLFeatureAccessor.h"
#include "kivml/ITensorMLFeatureModifier.h"

namespace kivml::utility {

class RecycledMemoryTensorMLFeature final
    : public kivcore::classref::Implements<IMLFeature, ITensorMLFeatureAccessor, ITensorMLFeatureModifier> {
 public:
  RecycledMemoryTensorMLFeature(std::shared_ptr<const kivcore::allocator::RecycledMemory> memory,
                                uint64_t dataTypeSize, ShapeType shape, StrideType strides);

  // \see ITensorMLFeatureAccessor. GetCount is the buffer's bytes / element size (0 without either).
  uint64_t GetCount() const override;
  ShapeType GetShape() const override { return mShape; }
  StrideType GetStrides() const override { return mStrides; }
  const void* GetData() const override { return mMemory ? mMemory->Buffer() : nullptr; }
  uint64_t GetDataTypeSize() const override { return mDataTypeSize; }
  kivcore::classref::InterfaceRef<IMLFeature> GetFeatureRef() const override;

  // \see ITensorMLFeatureModifier
  void* GetMutableData() override;

 private:
  const std::shared_ptr<const kivcore::allocator::RecycledMemory> mMemory;
  const uint64_t mDataTypeSize;
  const ShapeType mShape;
  const StrideType mStrides;
};

}  // namespace kivml::utility
