#include "onnxruntime/ORTTensorWrapper.h"

#include "kivcore/utility/ImmutableString.h"
#include "kivml/utility/TensorLayout.h"
#include "onnxruntime/ORTApi.h"
#include "onnxruntime/ORTElementTypes.h"
#include "onnxruntime/ORTTensorDescription.h"

namespace kivml::ort {

namespace {

UniqueTensorInfo GetTensorInfo(const OrtValue* value) {
  OrtTensorTypeAndShapeInfo* info = nullptr;
  ThrowIfFailed(Api().GetTensorTypeAndShape(value, &info));
  return UniqueTensorInfo(info);
}

}  // namespace

std::shared_ptr<OrtValue> ORTTensorWrapper::Share(OrtValue* value) {
  return std::shared_ptr<OrtValue>(value, OrtReleaser<OrtValue, &OrtApi::ReleaseValue>());
}

ORTTensorWrapper::ORTTensorWrapper(std::shared_ptr<OrtValue> value) : mValue(std::move(value)) {}

ORTTensorWrapper::ORTTensorWrapper(std::shared_ptr<OrtValue> value, uint64_t item)
    : mValue(std::move(value)), mItem(item) {}

uint64_t ORTTensorWrapper::ItemElements(const OrtTensorTypeAndShapeInfo& info) const {
  size_t count = 0;
  ThrowIfFailed(Api().GetTensorShapeElementCount(&info, &count));
  if (!mItem) {
    return count;
  }
  const DescriptionShapeType shape = ORTTensorDescription::ReadShape(info);
  const uint64_t items = shape.empty() ? 1 : static_cast<uint64_t>(shape.front());
  return items == 0 ? 0 : count / items;
}

uint64_t ORTTensorWrapper::GetCount() const {
  return ItemElements(*GetTensorInfo(mValue.get()));
}

ShapeType ORTTensorWrapper::GetShape() const {
  const DescriptionShapeType whole = ORTTensorDescription::ReadShape(*GetTensorInfo(mValue.get()));
  ShapeType shape(whole.begin(), whole.end());
  if (mItem && !shape.empty()) {
    shape.front() = 1;
  }
  return shape;
}

StrideType ORTTensorWrapper::GetStrides() const {
  return utility::CalculatePackedStrides(GetShape());
}

uint64_t ORTTensorWrapper::GetDataTypeSize() const {
  return ElementSize(*GetTensorInfo(mValue.get()));
}

uint64_t ORTTensorWrapper::ElementSize(const OrtTensorTypeAndShapeInfo& info) {
  ONNXTensorElementDataType type = ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED;
  ThrowIfFailed(Api().GetTensorElementType(&info, &type));
  return GetONNXElementSize(type);
}

char* ORTTensorWrapper::ItemData() const {
  void* data = nullptr;
  ThrowIfFailed(Api().GetTensorMutableData(mValue.get(), &data));
  if (!mItem || data == nullptr) {
    return static_cast<char*>(data);
  }
  const auto info = GetTensorInfo(mValue.get());
  return static_cast<char*>(data) + *mItem * ItemElements(*info) * ElementSize(*info);
}

const void* ORTTensorWrapper::GetData() const {
  return ItemData();
}

void* ORTTensorWrapper::GetMutableData() {
  return ItemData();
}

kivcore::classref::InterfaceRef<IMLFeature> ORTTensorWrapper::GetFeatureRef() const {
  auto self = std::const_pointer_cast<kivcore::classref::UnknownBase>(GetSharedFromThis());
  return kivcore::classref::InterfaceRef<kivcore::classref::UnknownBase>(std::move(self)).Query<IMLFeature>();
}

kivcore::classref::InterfaceRef<ITensorFeatureDescription> ORTTensorWrapper::GetDescription() const {
  const auto info = GetTensorInfo(mValue.get());
  auto description =
      kivcore::classref::CreateObject<ORTTensorDescription>(kivcore::utility::ImmutableString(), *info);
  return kivcore::classref::MakeInterfaceRef<ITensorFeatureDescription>(std::move(description));
}

}  // namespace kivml::ort
