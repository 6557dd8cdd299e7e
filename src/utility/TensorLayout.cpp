#include "kivml/utility/TensorLayout.h"

#include <algorithm>

namespace kivml::utility {

uint64_t GetTensorDataTypeSize(const kivcore::utility::Guid& dataType) noexcept {
  if (dataType == features::kInt32TensorFeatureType) {
    return 4;
  }
  if (dataType == features::kInt64TensorFeatureType) {
    return 8;
  }
  if (dataType == features::kFloat32TensorFeatureType) {
    return 4;
  }
  if (dataType == features::kDoubleTensorFeatureType) {
    return 8;
  }
  if (dataType == features::kBoolTensorFeatureType) {
    return 1;
  }
  return 0;
}

std::string_view GetTensorDataTypeName(const kivcore::utility::Guid& dataType) noexcept {
  if (dataType == features::kInt32TensorFeatureType) {
    return "int32";
  }
  if (dataType == features::kInt64TensorFeatureType) {
    return "int64";
  }
  if (dataType == features::kFloat32TensorFeatureType) {
    return "float32";
  }
  if (dataType == features::kDoubleTensorFeatureType) {
    return "double";
  }
  if (dataType == features::kBoolTensorFeatureType) {
    return "bool";
  }
  return "unknown";
}

uint64_t CalculateTensorFeatureSize(
    const kivcore::classref::InterfaceRef<ITensorFeatureDescription>& description) {
  if (!description) {
    return 0;
  }
  uint64_t size = GetTensorDataTypeSize(description->GetTensorDataType());
  for (const int64_t dimension : description->GetTensorShape()) {
    size *= static_cast<uint64_t>(dimension);
  }
  return size;
}

StrideType CalculatePackedStrides(const ShapeType& shape) {
  StrideType strides(shape.size(), 1);
  uint64_t product = 1;
  for (size_t i = 0; i + 1 < shape.size(); ++i) {
    product *= shape[i];
    strides[i + 1] = product;
  }
  std::reverse(strides.begin(), strides.end());
  return strides;
}

}  // namespace kivml::utility
