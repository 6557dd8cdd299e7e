#include "onnxruntime/ORTElementTypes.h"

#include <algorithm>
#include <cstring>
#include <map>

#include "kivcore/utility/Indestructible.h"
#include "kivml/ResultCodes.h"
#include "kivml/TensorFeatureTypes.h"
#include "onnxruntime/PredictException.h"

namespace kivml::ort {

namespace {

struct ElementType {
  ONNXTensorElementDataType onnxType;
  uint64_t size;
};

struct BytewiseLess {
  bool operator()(const kivcore::utility::Guid& a, const kivcore::utility::Guid& b) const noexcept {
    const auto left = a.Bytes();
    const auto right = b.Bytes();
    return std::memcmp(left.data(), right.data(), left.size()) < 0;
  }
};

using ElementTypeMap = std::map<kivcore::utility::Guid, ElementType, BytewiseLess>;

const ElementTypeMap& GetElementTypeMap() {
  // Built on first use: the type ids are other translation units' statics. Never destroyed: evaluator
  // workers convert tensors while the process exits.
  static const kivcore::utility::Indestructible<ElementTypeMap> map(ElementTypeMap{
      {features::kInt32TensorFeatureType, {ONNX_TENSOR_ELEMENT_DATA_TYPE_INT32, 4}},
      {features::kInt64TensorFeatureType, {ONNX_TENSOR_ELEMENT_DATA_TYPE_INT64, 8}},
      {features::kFloat32TensorFeatureType, {ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT, 4}},
      {features::kDoubleTensorFeatureType, {ONNX_TENSOR_ELEMENT_DATA_TYPE_DOUBLE, 8}},
      {features::kBoolTensorFeatureType, {ONNX_TENSOR_ELEMENT_DATA_TYPE_BOOL, 1}},
  });
  return *map;
}

const ElementTypeMap::value_type* FindONNXType(ONNXTensorElementDataType type) {
  const auto& map = GetElementTypeMap();
  const auto found = std::find_if(map.begin(), map.end(),
                                  [type](const auto& entry) { return entry.second.onnxType == type; });
  return found == map.end() ? nullptr : &*found;
}

}  // namespace

ONNXTensorElementDataType ToONNXElementType(const kivcore::utility::Guid& dataType) {
  const auto& map = GetElementTypeMap();
  const auto found = map.find(dataType);
  if (found == map.end()) {
    throw PredictException(eBadFeatureDescriptions);
  }
  return found->second.onnxType;
}

std::optional<kivcore::utility::Guid> FromONNXElementType(ONNXTensorElementDataType type) {
  const auto* entry = FindONNXType(type);
  return entry == nullptr ? std::nullopt : std::optional(entry->first);
}

uint64_t GetONNXElementSize(ONNXTensorElementDataType type) {
  const auto* entry = FindONNXType(type);
  if (entry == nullptr) {
    throw PredictException(eBadFeature);
  }
  return entry->second.size;
}

}  // namespace kivml::ort
