#pragma once
// A tensor feature whose elements live in a Direct3D 12 buffer on the GPU rather than in CPU memory. Slot
// order is part of the contract (hosts lay out mocks against it).

#include "kivcore/classref/InterfaceRef.h"
#include "kivml/IMLFeature.h"
#include "kivml/TensorFeatureTypes.h"
#include "kivml/gpu/D3D12.h"

namespace kivml::features {

class ID3D12ResourceFeature : public kivcore::classref::Unknown {
 public:
  static constexpr kivcore::utility::Guid kIID{"239CAF39-4148-4B8D-822A-7B7F2BEDFD7A", 36};

  virtual ShapeType GetShape() const = 0;
  // The buffer itself (a new reference, not a copy of it).
  virtual gpu::ComPtr<ID3D12Resource> GetID3D12Resource() const = 0;
  // A counted reference to the feature itself.
  virtual kivcore::classref::InterfaceRef<IMLFeature> GetFeatureRef() const = 0;
};

}  // namespace kivml::features
