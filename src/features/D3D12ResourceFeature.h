#pragma once
// The library's GPU tensor: a buffer placed in a heap, and its shape. Made only by
// CreateD3D12ResourceFeature. Immutable, so readers need no lock.

#include <memory>

#include "kivcore/classref/Implements.h"
#include "kivml/IMLFeature.h"
#include "kivml/features/ID3D12ResourceFeature.h"
#include "kivml/gpu/DX12ResourceWrapper.h"

namespace kivml::features {

class D3D12ResourceFeature final : public kivcore::classref::Implements<ID3D12ResourceFeature, IMLFeature> {
 public:
  D3D12ResourceFeature(std::shared_ptr<gpu::DX12ResourceWrapper> resource, ShapeType shape);

  // \see ID3D12ResourceFeature
  ShapeType GetShape() const override { return mShape; }
  gpu::ComPtr<ID3D12Resource> GetID3D12Resource() const override;
  kivcore::classref::InterfaceRef<IMLFeature> GetFeatureRef() const override;

 private:
  const std::shared_ptr<gpu::DX12ResourceWrapper> mResource;
  const ShapeType mShape;
};

}  // namespace kivml::features
