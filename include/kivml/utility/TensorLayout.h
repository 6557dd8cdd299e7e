#pragma once
// Byte sizes and strides of tensors. Nothing here throws; an unknown element type has size 0, which
// callers treat as a type no tensor of this library can hold.

#include <cstdint>
#include <string_view>

#include "kivcore/classref/InterfaceRef.h"
#include "kivml/ITensorFeatureDescription.h"
#include "kivml/TensorFeatureTypes.h"
#include "kivml/kivml_export.h"

namespace kivml::utility {

// 4, 8, 4, 8, 1 for int32, int64, float32, double, bool; 0 for any other id.
KIVML_EXPORT uint64_t GetTensorDataTypeSize(const kivcore::utility::Guid& dataType) noexcept;

// "int32", "int64", "float32", "double", "bool", or "unknown".
KIVML_EXPORT std::string_view GetTensorDataTypeName(const kivcore::utility::Guid& dataType) noexcept;

// Bytes of one tensor matching the description: element size times every dimension, each taken as an
// unsigned 64-bit value, without overflow checks (a free dimension of -1 makes the result meaningless).
// 0 for an empty reference or an unknown element type; the element size alone for an empty shape.
KIVML_EXPORT uint64_t
CalculateTensorFeatureSize(const kivcore::classref::InterfaceRef<ITensorFeatureDescription>& description);

// Strides of a packed tensor. These are products of the LEADING dimensions: shape (3, 5, 10) gives
// (15, 3, 1), not the row-major (50, 10, 1); the last dimension never enters. Readers of tensors in this
// system rely on exactly this rule.
KIVML_EXPORT StrideType CalculatePackedStrides(const ShapeType& shape);

}  // namespace kivml::utility
