#pragma once
// Shape arithmetic of the debug tensor I/O. Shapes read from images are hostile input, so counts are
// computed with overflow checks rather than trusted.

#include <cstdint>
#include <optional>
#include <span>

#include "kivml/TensorFeatureTypes.h"

namespace kivml::debug {

// Product of the dimensions (1 for an empty shape, 0 when any dimension is 0); nullopt on overflow.
std::optional<uint64_t> CheckedElementCount(std::span<const uint64_t> shape) noexcept;

// CheckedElementCount times `elementSize`; nullopt on overflow.
std::optional<uint64_t> CheckedByteCount(std::span<const uint64_t> shape, uint64_t elementSize) noexcept;

// The informational strides of the debug tensors, one entry longer than the shape: start from (1), append
// each dimension times the last entry, reverse. (2, 4) gives (8, 2, 1); () gives (1). Not the packed rule
// of CalculatePackedStrides, deliberately: readers use the shape, and the debug images have always carried
// these. Products wrap silently; they are never used to address memory.
StrideType ComputeDebugStrides(std::span<const uint64_t> shape);

}  // namespace kivml::debug
