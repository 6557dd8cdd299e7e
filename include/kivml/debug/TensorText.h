#pragma once
// Typed tensor creation and a readable text dump, for diagnosis by host code. Both are instantiated (and
// exported) for int8_t, char, int16_t, int32_t, float, double, int64_t and bool only.
//
// CreateTensorFromData fills count = product(shape) elements (1 for an empty shape) in memory order, one
// generator call each. Its strides are informational and deliberately one longer than the shape: (1), then
// each dimension times the last entry, reversed; shape (2, 4) gives (8, 2, 1).
//
// DumpTensorToString reads the tensor's elements as T (not checked against the element size) and returns
//   {\n    "Shape": [2, 4],\n\n    "Data": [1, 2, 3, 4, 5, 6, 7, 8]\n}\n\n
// or "" when `feature` is empty or not a tensor. int8_t prints as a number, char as the character itself,
// bool any nonzero byte as 1. A T wider than the tensor's elements is still never read past its bytes.

#include <cstdint>
#include <functional>
#include <vector>

#include "kivcore/classref/InterfaceRef.h"
#include "kivcore/string/StringTypes.h"
#include "kivml/IMLFeature.h"
#include "kivml/kivml_export.h"

namespace kivml::debug {

template <typename T>
kivcore::classref::InterfaceRef<IMLFeature> CreateTensorFromData(const std::vector<uint64_t>& shape,
                                                                 const std::function<T()>& generator);

template <typename T>
kivcore::u8string DumpTensorToString(const kivcore::classref::InterfaceRef<IMLFeature>& feature);

#define KIVML_DEBUG_TENSOR_TEXT_EXTERN(T)                                                           \
  extern template KIVML_EXPORT kivcore::classref::InterfaceRef<IMLFeature> CreateTensorFromData<T>( \
      const std::vector<uint64_t>&, const std::function<T()>&);                                     \
  extern template KIVML_EXPORT kivcore::u8string DumpTensorToString<T>(                             \
      const kivcore::classref::InterfaceRef<IMLFeature>&);
KIVML_DEBUG_TENSOR_TEXT_EXTERN(int8_t)
KIVML_DEBUG_TENSOR_TEXT_EXTERN(char)
KIVML_DEBUG_TENSOR_TEXT_EXTERN(int16_t)
KIVML_DEBUG_TENSOR_TEXT_EXTERN(int32_t)
KIVML_DEBUG_TENSOR_TEXT_EXTERN(float)
KIVML_DEBUG_TENSOR_TEXT_EXTERN(double)
KIVML_DEBUG_TENSOR_TEXT_EXTERN(int64_t)
KIVML_DEBUG_TENSOR_TEXT_EXTERN(bool)
#undef KIVML_DEBUG_TENSOR_TEXT_EXTERN

}  // namespace kivml::debug
