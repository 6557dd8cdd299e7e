#pragma once
// Tensor element types and the vectors that describe a tensor's layout. An element type is a Guid, not an
// enumeration, so other modules can add types without changing this library. The five constants are
// exported data, constant-initialised, and therefore valid before any static initialiser reads them.

#include <cstdint>
#include <vector>

#include "kivcore/allocator/STLAllocator.h"
#include "kivcore/utility/Guid.h"
#include "kivml/kivml_export.h"

namespace kivml {

// Dimension sizes of a tensor.
using ShapeType = std::vector<uint64_t, kivcore::allocator::STLAllocator<uint64_t>>;
// Per-dimension strides, counted in elements, not bytes.
using StrideType = std::vector<uint64_t, kivcore::allocator::STLAllocator<uint64_t>>;
// Shape as a model describes it: -1 marks a free dimension (usually the batch).
using DescriptionShapeType = std::vector<int64_t, kivcore::allocator::STLAllocator<int64_t>>;

}  // namespace kivml

namespace kivml::features {

KIVML_EXPORT extern const kivcore::utility::Guid kInt32TensorFeatureType;    // 4 bytes
KIVML_EXPORT extern const kivcore::utility::Guid kInt64TensorFeatureType;    // 8 bytes
KIVML_EXPORT extern const kivcore::utility::Guid kFloat32TensorFeatureType;  // 4 bytes
KIVML_EXPORT extern const kivcore::utility::Guid kDoubleTensorFeatureType;   // 8 bytes
KIVML_EXPORT extern const kivcore::utility::Guid kBoolTensorFeatureType;     // 1 byte

}  // namespace kivml::features
