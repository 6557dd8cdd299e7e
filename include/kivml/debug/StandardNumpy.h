#pragma once
// .npy images as NumPy writes and reads them (numpy.save / numpy.load), for every tensor element type of
// the library: int32 "<i4", int64 "<i8", float32 "<f4", double "<f8", bool "|b1". Unlike the debug images
// (NumpyDebugIO.h), these keep the element type and the shape exactly, so a tool can exchange tensors with
// NumPy. Images live in recycled memory; nothing here touches files.

#include <memory>
#include <string>

#include "kivcore/allocator/RecycledMemory.h"
#include "kivcore/classref/InterfaceRef.h"
#include "kivcore/utility/Guid.h"
#include "kivml/IMLFeature.h"
#include "kivml/kivml_export.h"

namespace kivml::debug {

// The NumPy descriptor of a library element type ("<f4" for kFloat32TensorFeatureType); empty for a type
// NumPy images cannot carry.
KIVML_EXPORT std::string StandardNumpyDescriptor(const kivcore::utility::Guid& elementType);

// A version 1.0 image of the tensor, `elementType` naming what its elements are. Throws
// kivcore::kiv_exception (eBadFeature) when `feature` is not a tensor, the element type has no descriptor,
// or the tensor's element size does not match the type.
KIVML_EXPORT std::shared_ptr<kivcore::allocator::RecycledMemory> DumpTensorToStandardNumpy(
    const kivcore::classref::InterfaceRef<IMLFeature>& feature, const kivcore::utility::Guid& elementType);

struct StandardNumpyTensor {
  kivcore::classref::InterfaceRef<IMLFeature> mFeature;  // packed tensor over the image's data, not a copy
  kivcore::utility::Guid mElementType;
};

// Reads an image of version 1.0, 2.0 or 3.0 in C order with a little-endian (or byte-order-free)
// descriptor of one of the five types. Throws kivcore::kiv_exception (eBadFeature) with a message that
// says what is wrong ("not a .npy image", "unsupported dtype '>f4'", "Fortran order is not supported",
// "data is 12 bytes, shape (2, 4) of '<f4' needs 32", ...) for anything else; never reads out of bounds.
KIVML_EXPORT StandardNumpyTensor
CreateTensorFromStandardNumpy(const std::shared_ptr<const kivcore::allocator::RecycledMemory>& image);

}  // namespace kivml::debug
