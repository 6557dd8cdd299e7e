#pragma once
// Factories of CPU tensors over recycled memory. They validate nothing: shape, strides and buffer size
// are the caller's business. Allocation failures pass through as the core runtime's exceptions.

#include <cstdint>
#include <memory>

#include "kivcore/allocator/RecycledMemory.h"
#include "kivcore/classref/InterfaceRef.h"
#include "kivml/IMLEvaluator.h"
#include "kivml/IMLFeature.h"
#include "kivml/IMLModel.h"
#include "kivml/TensorFeatureTypes.h"
#include "kivml/kivml_export.h"

namespace kivml::utility {

// A tensor over `data` (shared, not copied) with the given element size, shape and strides.
KIVML_EXPORT kivcore::classref::InterfaceRef<IMLFeature> CreateTensor(
    std::shared_ptr<const kivcore::allocator::RecycledMemory> data, uint64_t dataTypeSize, ShapeType shape,
    StrideType strides);

// A tensor whose strides are derived from the shape by CalculatePackedStrides.
KIVML_EXPORT kivcore::classref::InterfaceRef<IMLFeature> CreatePackedTensor(
    std::shared_ptr<const kivcore::allocator::RecycledMemory> data, uint64_t dataTypeSize, ShapeType shape);

// One zero-filled packed tensor per description, named after it, in the same order. A description that
// is not a tensor description raises the null-pointer exception naming ITensorFeatureDescription.
KIVML_EXPORT FeatureContainerVector CreateDummyTensors(const FeatureDescriptionVector& descriptions);

}  // namespace kivml::utility
