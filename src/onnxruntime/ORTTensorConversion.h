#pragma once
// Tensor features to ONNX Runtime values and back. A single request's inputs are borrowed (the value
// points into the feature's buffer, which must outlive the run) and outputs are wrapped; only a batch's
// inputs are copied, into one value per input name.

#include <onnxruntime_c_api.h>

#include <memory>
#include <span>
#include <string_view>

#include "kivcore/allocator/STLAllocator.h"
#include "kivcore/classref/InterfaceRef.h"
#include "kivml/IMLFeature.h"
#include "kivml/ITensorMLFeatureAccessor.h"
#include "kivml/TensorFeatureTypes.h"
#include "onnxruntime/ORTApi.h"

namespace kivml::ort {

using FeatureRefVector =
    std::vector<kivcore::classref::InterfaceRef<IMLFeature>,
                kivcore::allocator::STLAllocator<kivcore::classref::InterfaceRef<IMLFeature>>>;

// The shape `tensor` has when fed to an input described by `described` (-1 where the model leaves a
// dimension free) with elements of `type`. Throws kiv_exception(eBadFeature), naming the input, when the
// tensor's element size, rank, fixed dimensions or element count do not fit.
DescriptionShapeType FitToDescription(std::string_view inputName, const ITensorMLFeatureAccessor& tensor,
                                      const DescriptionShapeType& described, ONNXTensorElementDataType type);

// A value of `shape` over the tensor's own buffer.
UniqueValue BorrowAsValue(const ITensorMLFeatureAccessor& tensor, const DescriptionShapeType& shape,
                          ONNXTensorElementDataType type);

// One value holding `items` one after the other along a new first dimension: `itemShape` with its first
// dimension (1) replaced by the item count. Every item must hold the elements of `itemShape`.
UniqueValue JoinAsValue(std::span<const ITensorMLFeatureAccessor* const> items,
                        const DescriptionShapeType& itemShape, ONNXTensorElementDataType type);

// A feature that owns `value`.
kivcore::classref::InterfaceRef<IMLFeature> WrapValue(UniqueValue value);

// One feature per item of the batched output `outputName`: item i gets slice i along the first dimension.
// Throws kiv_exception(eInferenceFailure) when that dimension does not count `itemCount` items (an output
// over all rows together, such as a sum), as no item's share of it can be told.
FeatureRefVector SplitValue(std::string_view outputName, UniqueValue value, size_t itemCount);
// The failure SplitValue raises, for an output of `shape` that cannot be split into `itemCount` rows.
[[noreturn]] void ThrowNotSplittable(std::string_view outputName, const DescriptionShapeType& shape,
                                     size_t itemCount);

}  // namespace kivml::ort
