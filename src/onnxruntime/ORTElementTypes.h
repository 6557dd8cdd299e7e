#pragma once
// The library's tensor data types as ONNX Runtime element types. Exactly five are mapped: int32, int64,
// float32, double and bool. Float16 and strings are not supported.

#include <onnxruntime_c_api.h>

#include <cstdint>
#include <optional>

#include "kivcore/utility/Guid.h"

namespace kivml::ort {

// The ONNX element type of `dataType`; throws PredictException(0xED6C0002) for a type not mapped.
ONNXTensorElementDataType ToONNXElementType(const kivcore::utility::Guid& dataType);

// The library's data type of an ONNX element type; empty for a type not mapped.
std::optional<kivcore::utility::Guid> FromONNXElementType(ONNXTensorElementDataType type);

// Bytes per element of an ONNX element type; throws PredictException(0xED6C0003) for a type not mapped.
uint64_t GetONNXElementSize(ONNXTensorElementDataType type);

}  // namespace kivml::ort
