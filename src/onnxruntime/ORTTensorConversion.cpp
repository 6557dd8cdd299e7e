#include "onnxruntime/ORTTensorConversion.h"

#include <cstring>
#include <string>

#include "kivcore/config/kiv_exception.h"
#include "kivml/ResultCodes.h"
#include "onnxruntime/ORTElementTypes.h"
#include "onnxruntime/ORTTensorDescription.h"
#include "onnxruntime/ORTTensorWrapper.h"

namespace kivml::ort {

namespace {

template <class Shape>
std::string ShapeText(const Shape& shape) {
  std::string text = "[";
  for (size_t i = 0; i < shape.size(); ++i) {
    text += (i == 0 ? "" : ", ") + std::to_string(shape[i]);
  }
  return text + "]";
}

[[noreturn]] void ThrowBadFeature(std::string_view inputName, const std::string& problem) {
  throw kivcore::kiv_exception(("Input '" + std::string(inputName) + "' " + problem).c_str(), eBadFeature);
}

// Whether strides given with `shape` describe its elements packed one after the other in row order, which
// is how every reader here takes a tensor's buffer. Accepted: no strides; the library's own packed
// strides (CalculatePackedStrides), alone or after the total element count as the NumPy debug reader
// writes them; and row-major strides. A dimension of one element may have any stride: it never moves.
bool ReadsAsPacked(const ShapeType& shape, const StrideType& strides) {
  if (strides.empty()) {
    return true;
  }
  const size_t rank = shape.size();
  // Walks the dimensions from the last, building each rule's expected stride as it goes (no allocation:
  // this runs for every input of every request).
  const auto matches = [&](size_t offset, bool rowMajor) {
    if (strides.size() != rank + offset) {
      return false;
    }
    uint64_t expected = 1;
    for (size_t k = rank; k-- > 0;) {
      if (shape[k] > 1 && strides[offset + k] != expected) {
        return false;
      }
      expected *= rowMajor ? shape[k] : shape[rank - 1 - k];
    }
    return true;
  };
  return matches(0, false) || matches(1, false) || matches(0, true);
}

OrtMemoryInfo* DefaultMemoryInfo() {
  const OrtMemoryInfo* info = nullptr;
  ThrowIfFailed(Api().AllocatorGetInfo(DefaultAllocator(), &info));
  return const_cast<OrtMemoryInfo*>(info);
}

}  // namespace

DescriptionShapeType FitToDescription(std::string_view inputName, const ITensorMLFeatureAccessor& tensor,
                                      const DescriptionShapeType& described, ONNXTensorElementDataType type) {
  const uint64_t elementSize = GetONNXElementSize(type);
  if (tensor.GetDataTypeSize() != elementSize) {
    ThrowBadFeature(inputName, "has elements of " + std::to_string(tensor.GetDataTypeSize()) +
                                   " bytes; the model takes elements of " + std::to_string(elementSize) +
                                   " bytes");
  }
  const ShapeType shape = tensor.GetShape();
  if (shape.size() != described.size()) {
    ThrowBadFeature(inputName, "has shape " + ShapeText(shape) + "; the model takes " + ShapeText(described));
  }
  if (!ReadsAsPacked(shape, tensor.GetStrides())) {
    ThrowBadFeature(inputName, "has strides " + ShapeText(tensor.GetStrides()) + " for its shape " +
                                   ShapeText(shape) + "; the evaluator reads tensors packed, in row order");
  }
  DescriptionShapeType fitted(described.size());
  uint64_t count = 1;
  for (size_t i = 0; i < described.size(); ++i) {
    if (described[i] >= 0 && shape[i] != static_cast<uint64_t>(described[i])) {
      ThrowBadFeature(inputName,
                      "has shape " + ShapeText(shape) + "; the model takes " + ShapeText(described));
    }
    fitted[i] = static_cast<int64_t>(shape[i]);
    count *= shape[i];
  }
  if (tensor.GetCount() != count || (count > 0 && tensor.GetData() == nullptr)) {
    ThrowBadFeature(inputName, "holds " + std::to_string(tensor.GetCount()) + " elements; its shape " +
                                   ShapeText(shape) + " needs " + std::to_string(count));
  }
  return fitted;
}

UniqueValue BorrowAsValue(const ITensorMLFeatureAccessor& tensor, const DescriptionShapeType& shape,
                          ONNXTensorElementDataType type) {
  const size_t bytes = tensor.GetCount() * tensor.GetDataTypeSize();
  OrtValue* value = nullptr;
  if (bytes == 0) {
    // An empty tensor has no buffer to borrow.
    ThrowIfFailed(Api().CreateTensorAsOrtValue(DefaultAllocator(), shape.data(), shape.size(), type, &value));
  } else {
    // ONNX Runtime only reads inputs; the C interface takes the pointer as writable regardless.
    ThrowIfFailed(Api().CreateTensorWithDataAsOrtValue(DefaultMemoryInfo(),
                                                       const_cast<void*>(tensor.GetData()), bytes,
                                                       shape.data(), shape.size(), type, &value));
  }
  return UniqueValue(value);
}

UniqueValue JoinAsValue(std::span<const ITensorMLFeatureAccessor* const> items,
                        const DescriptionShapeType& itemShape, ONNXTensorElementDataType type) {
  DescriptionShapeType shape = itemShape;
  shape.front() = static_cast<int64_t>(items.size());
  OrtValue* raw = nullptr;
  ThrowIfFailed(Api().CreateTensorAsOrtValue(DefaultAllocator(), shape.data(), shape.size(), type, &raw));
  UniqueValue value(raw);
  void* data = nullptr;
  ThrowIfFailed(Api().GetTensorMutableData(value.get(), &data));
  auto* cursor = static_cast<char*>(data);
  for (const ITensorMLFeatureAccessor* item : items) {
    const size_t bytes = item->GetCount() * item->GetDataTypeSize();
    if (bytes > 0) {
      std::memcpy(cursor, item->GetData(), bytes);
      cursor += bytes;
    }
  }
  return value;
}

kivcore::classref::InterfaceRef<IMLFeature> WrapValue(UniqueValue value) {
  return kivcore::classref::MakeInterfaceRef<IMLFeature>(
      kivcore::classref::CreateObject<ORTTensorWrapper>(ORTTensorWrapper::Share(value.release())));
}

FeatureRefVector SplitValue(std::string_view outputName, UniqueValue value, size_t itemCount) {
  OrtTensorTypeAndShapeInfo* rawInfo = nullptr;
  ThrowIfFailed(Api().GetTensorTypeAndShape(value.get(), &rawInfo));
  const DescriptionShapeType shape = ORTTensorDescription::ReadShape(*UniqueTensorInfo(rawInfo));
  if (shape.empty() || shape.front() != static_cast<int64_t>(itemCount)) {
    ThrowNotSplittable(outputName, shape, itemCount);
  }
  const std::shared_ptr<OrtValue> shared = ORTTensorWrapper::Share(value.release());
  FeatureRefVector features;
  features.reserve(itemCount);
  for (size_t item = 0; item < itemCount; ++item) {
    features.push_back(kivcore::classref::MakeInterfaceRef<IMLFeature>(
        kivcore::classref::CreateObject<ORTTensorWrapper>(shared, item)));
  }
  return features;
}

void ThrowNotSplittable(std::string_view outputName, const DescriptionShapeType& shape, size_t itemCount) {
  throw kivcore::kiv_exception(("Output '" + std::string(outputName) + "' has shape " + ShapeText(shape) +
                                ": its first dimension does not count the " + std::to_string(itemCount) +
                                " rows of the batch, so it cannot be split between the batched requests")
                                   .c_str(),
                               eInferenceFailure);
}

}  // namespace kivml::ort
