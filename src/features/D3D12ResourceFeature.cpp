#include "features/D3D12ResourceFeature.h"

#include <utility>

namespace kivml::features {

D3D12ResourceFeature::D3D12ResourceFeature(std::shared_ptr<gpu::DX12ResourceWrapper> resource,
                                           ShapeType shape)
    : mResource(std::move(resource)), mShape(std::move(shape)) {}

gpu::ComPtr<ID3D12Resource> D3D12ResourceFeature::GetID3D12Resource() const {
  return mResource ? mResource->GetResource() : nullptr;
}

kivcore::classref::InterfaceRef<IMLFeature> D3D12ResourceFeature::GetFeatureRef() const {
  auto self = std::const_pointer_cast<kivcore::classref::UnknownBase>(GetSharedFromThis());
  return kivcore::classref::InterfaceRef<kivcore::classref::UnknownBase>(std::move(self)).Query<IMLFeature>();
}

}  // namespace kivml::features
