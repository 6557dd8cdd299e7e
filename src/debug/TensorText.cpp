#include "kivml/debug/TensorText.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <optional>
#include <ostream>
#include <type_traits>

#include "debug/ShapeArithmetic.h"
#include "kivcore/allocator/RecycledMemory.h"
#include "kivcore/string/UTF8StringStream.h"
#include "kivml/ITensorMLFeatureAccessor.h"
#include "kivml/utility/TensorFactories.h"

namespace kivml::debug {

using kivcore::allocator::RecycledMemory;
using kivcore::classref::InterfaceRef;

namespace {

template <typename T>
void PrintElement(kivcore::UTF8StringStream& out, const char* bytes) {
  if constexpr (std::is_same_v<T, bool>) {
    // Read the byte, not a bool: bytes other than 0 and 1 are no valid bool and would be undefined.
    unsigned char byte = 0;
    std::memcpy(&byte, bytes, 1);
    out << (byte != 0);
  } else {
    T value{};
    std::memcpy(&value, bytes, sizeof(T));  // tensor data need not be aligned for T
    if constexpr (std::is_same_v<T, int8_t>) {
      out << static_cast<int>(value);  // a number, unlike char
    } else {
      out << value;
    }
  }
}

}  // namespace

template <typename T>
InterfaceRef<IMLFeature> CreateTensorFromData(const std::vector<uint64_t>& shape,
                                              const std::function<T()>& generator) {
  const std::optional<uint64_t> bytes = CheckedByteCount(shape, sizeof(T));
  if (!bytes) {
    throw std::bad_array_new_length();
  }
  auto memory = RecycledMemory::Create(static_cast<size_t>(*bytes));
  char* out = memory->Buffer();
  for (uint64_t offset = 0; offset < *bytes; offset += sizeof(T)) {
    const T value = generator();
    std::memcpy(out + offset, &value, sizeof(T));
  }
  return utility::CreateTensor(std::move(memory), sizeof(T), ShapeType(shape.begin(), shape.end()),
                               ComputeDebugStrides(shape));
}

template <typename T>
kivcore::u8string DumpTensorToString(const InterfaceRef<IMLFeature>& feature) {
  const auto tensor = feature.Query<ITensorMLFeatureAccessor>();
  if (!tensor) {
    return {};
  }
  kivcore::UTF8StringStream out;
  out << "{\n    \"Shape\": [";
  const ShapeType shape = tensor->GetShape();
  for (size_t i = 0; i < shape.size(); ++i) {
    out << (i > 0 ? ", " : "") << shape[i];
  }
  out << "],\n" << std::endl;
  out << "    \"Data\": [";
  // The elements are read as T whatever the tensor's element size; a T wider than that still never reads
  // past the tensor's own bytes.
  const auto* data = static_cast<const char*>(tensor->GetData());
  const uint64_t bytes = data ? tensor->GetCount() * tensor->GetDataTypeSize() : 0;
  const uint64_t count = std::min(tensor->GetCount(), bytes / sizeof(T));
  for (uint64_t i = 0; i < count; ++i) {
    if (i > 0) {
      out << ", ";
    }
    PrintElement<T>(out, data + i * sizeof(T));
  }
  out << "]\n}\n" << std::endl;
  return out.str();
}

#define KIVML_DEBUG_TENSOR_TEXT_INSTANTIATE(T)                                                         \
  template KIVML_EXPORT InterfaceRef<IMLFeature> CreateTensorFromData<T>(const std::vector<uint64_t>&, \
                                                                         const std::function<T()>&);   \
  template KIVML_EXPORT kivcore::u8string DumpTensorToString<T>(const InterfaceRef<IMLFeature>&);
KIVML_DEBUG_TENSOR_TEXT_INSTANTIATE(int8_t)
KIVML_DEBUG_TENSOR_TEXT_INSTANTIATE(char)
KIVML_DEBUG_TENSOR_TEXT_INSTANTIATE(int16_t)
KIVML_DEBUG_TENSOR_TEXT_INSTANTIATE(int32_t)
KIVML_DEBUG_TENSOR_TEXT_INSTANTIATE(float)
KIVML_DEBUG_TENSOR_TEXT_INSTANTIATE(double)
KIVML_DEBUG_TENSOR_TEXT_INSTANTIATE(int64_t)
KIVML_DEBUG_TENSOR_TEXT_INSTANTIATE(bool)
#undef KIVML_DEBUG_TENSOR_TEXT_INSTANTIATE

}  // namespace kivml::debug
