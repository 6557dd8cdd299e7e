#pragma once
// Makes GPU tensor features over buffers placed by DX12HeapWrapper.

#include <memory>

#include "kivcore/classref/InterfaceRef.h"
#include "kivml/TensorFeatureTypes.h"
#include "kivml/features/ID3D12ResourceFeature.h"
#include "kivml/gpu/DX12ResourceWrapper.h"
#include "kivml/kivml_export.h"

namespace kivml::features {

// A feature of the given shape over `resource`, which it keeps alive. Nothing is checked: the shape is the
// caller's account of what the buffer holds.
KIVML_EXPORT kivcore::classref::InterfaceRef<ID3D12ResourceFeature> CreateD3D12ResourceFeature(
    std::shared_ptr<gpu::DX12ResourceWrapper> resource, ShapeType shape);

}  // namespace kivml::features
