#pragma once
// Read access to a tensor feature. Slot order is part of the contract (hosts lay out mocks against it).

#include <cstdint>

#include "kivcore/classref/InterfaceRef.h"
#include "kivml/IMLFeature.h"
#include "kivml/TensorFeatureTypes.h"

namespace kivml {

class ITensorMLFeatureAccessor : public kivcore::classref::Unknown {
 public:
  static constexpr kivcore::utility::Guid kIID{"C8879FA8-D64D-44F1-BD3F-926B71FD2EA3", 36};

  // Number of elements.
  virtual uint64_t GetCount() const = 0;
  virtual ShapeType GetShape() const = 0;
  virtual StrideType GetStrides() const = 0;
  // First byte of the elements; null when there is no buffer.
  virtual const void* GetData() const = 0;
  // Bytes per element.
  virtual uint64_t GetDataTypeSize() const = 0;
  // A counted reference to the feature itself.
  virtual kivcore::classref::InterfaceRef<IMLFeature> GetFeatureRef() const = 0;
};

}  // namespace kivml
