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

uint64_t ORTTensorWrapper::ItemCount(const ShapeType& wholeShape) const {
  return mItem && !wholeShape.empty() ? wholeShape.front() : 1;
}

ShapeType ORTTensorWrapper::GetWholeShape() const {
  const auto info = GetTensorInfo(mValue.get());
  const DescriptionShapeType shape = ORTTensorDescription::ReadShape(*info);
  return ShapeType(shape.begin(), shape.end());
}

uint64_t ORTTensorWrapper::GetCount() const {
  const auto info = GetTensorInfo(mValue.get());
  size_t count = 0;
  ThrowIfFailed(Api().GetTensorShapeElementCount(info.get(), &count));
  if (!mItem) {
    return count;
  }
  const uint64_t items = ItemCount(GetWholeShape());
  return items == 0 ? 0 : count / items;
}

ShapeType ORTTensorWrapper::GetShape() const {
  ShapeType shape = GetWholeShape();
  if (mItem && !shape.empty()) {
    shape.front() = 1;
  }
  return shape;
}

StrideType ORTTensorWrapper::GetStrides() const {
  return utility::CalculatePackedStrides(GetShape());
}

uint64_t ORTTensorWrapper::GetDataTypeSize() const {
  const auto info = GetTensorInfo(mValue.get());
  ONNXTensorElementDataType type = ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED;
  ThrowIfFailed(Api().GetTensorElementType(info.get(), &type));
  return GetONNXElementSize(type);
}

char* ORTTensorWrapper::ItemData() const {
  void* data = nullptr;
  ThrowIfFailed(Api().GetTensorMutableData(mValue.get(), &data));
  if (!mItem || data == nullptr) {
    return static_cast<char*>(data);
  }
  return static_cast<char*>(data) + *mItem * GetCount() * GetDataTypeSize();
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
