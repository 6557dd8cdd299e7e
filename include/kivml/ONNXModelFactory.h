#pragma once
// Model objects made from an ONNX model, with their feature descriptions read from the model itself, so
// that a host need not write them. Each description describes one request: a leading free dimension
// (the batch) is described as 1, other free dimensions (image height, sequence length) stay -1. The
// model supports batched inference when every input has a leading free dimension and every output
// follows it, one row per row (not a sum over the rows, a fixed size or a count of something else).
//
// The library's initializers must have run. Failures throw kivcore::kiv_exception: eBadFeatureDescriptions
// when ONNX Runtime cannot read the model (its message follows ours), and the same code for an empty
// payload or a file that cannot be read.

#include <filesystem>
#include <memory>

#include "kivcore/allocator/RecycledMemory.h"
#include "kivcore/classref/InterfaceRef.h"
#include "kivcore/utility/ImmutableString.h"
#include "kivml/ModelMock.h"
#include "kivml/kivml_export.h"

namespace kivml {

// A model named after the file's stem.
KIVML_EXPORT kivcore::classref::InterfaceRef<ModelMock> CreateONNXModelFromFile(
    const std::filesystem::path& path, bool evaluateOnGPU = false);

KIVML_EXPORT kivcore::classref::InterfaceRef<ModelMock> CreateONNXModelFromBuffer(
    kivcore::utility::ImmutableString name, std::shared_ptr<kivcore::allocator::RecycledMemory> payload,
    bool evaluateOnGPU = false);

}  // namespace kivml
