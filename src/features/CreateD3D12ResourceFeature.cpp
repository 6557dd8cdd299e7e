#include "kivml/features/CreateD3D12ResourceFeature.h"

#include <utility>

#include "features/D3D12ResourceFeature.h"

namespace kivml::features {

kivcore::classref::InterfaceRef<ID3D12ResourceFeature> CreateD3D12ResourceFeature(
    std::shared_ptr<gpu::DX12ResourceWrapper> resource, ShapeType shape) {
  auto feature = kivcore::classref::CreateObject<D3D12ResourceFeature>(std::move(resource), std::move(shape));
  return kivcore::classref::MakeInterfaceRef<ID3D12ResourceFeature>(feature);
}

}  // namespace kivml::features
