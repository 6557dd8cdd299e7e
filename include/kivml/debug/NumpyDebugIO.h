#pragma once
// NumPy version 1.0 .npy images in memory, for diagnosis by host code. Two deliberate quirks pair up and
// must stay as they are: DumpTensorToNumpy always names the float32 descriptor whatever the tensor holds,
// and CreateTensorFromNumpy always makes 4-byte elements whatever the descriptor says. A one-dimensional
// shape (N) is written as (1, N). For images that NumPy itself reads back faithfully, see StandardNumpy.h.

#include <cstdint>
#include <memory>
#include <vector>

#include "kivcore/allocator/RecycledMemory.h"
#include "kivcore/classref/InterfaceRef.h"
#include "kivml/IMLFeature.h"
#include "kivml/debug/NumpyDataType.h"
#include "kivml/kivml_export.h"

namespace kivml::debug {

// An image of `byteCount` bytes from `data` with the given shape and type. The caller guarantees that the
// byte count matches the shape and type; nothing is checked.
KIVML_EXPORT std::shared_ptr<kivcore::allocator::RecycledMemory> DumpDataToNumpy(const void* data,
                                                                                 uint64_t byteCount,
                                                                                 std::vector<uint64_t> shape,
                                                                                 NumpyDataType type);

// The tensor's raw bytes under the float32 descriptor; empty when `feature` is empty or not a tensor.
KIVML_EXPORT std::shared_ptr<kivcore::allocator::RecycledMemory> DumpTensorToNumpy(
    const kivcore::classref::InterfaceRef<IMLFeature>& feature);

// A tensor of 4-byte elements over the image's data (shared, not copied); empty when the image is rejected,
// a shape claiming more elements than the data hold included. Never throws on malformed bytes.
KIVML_EXPORT kivcore::classref::InterfaceRef<IMLFeature> CreateTensorFromNumpy(
    const std::shared_ptr<const kivcore::allocator::RecycledMemory>& image);

}  // namespace kivml::debug
