#include "onnxruntime/ORTTensorDescription.h"

#include "onnxruntime/ORTElementTypes.h"

#include <tuple>

namespace kivml::ort {

ORTTensorDescription::ORTTensorDescription(kivcore::utility::ImmutableString name, UniqueTypeInfo typeInfo)
    : mName(std::move(name)) {
  const OrtTensorTypeAndShapeInfo* tensorInfo = nullptr;
  ThrowIfFailed(Api().CastTypeInfoToTensorInfo(typeInfo.get(), &tensorInfo));
  if (tensorInfo != nullptr) {  // owned by typeInfo
    Describe(*tensorInfo);
  }
}

ORTTensorDescription::ORTTensorDescription(kivcore::utility::ImmutableString name,
                                           const OrtTensorTypeAndShapeInfo& tensorInfo)
    : mName(std::move(name)) {
  Describe(tensorInfo);
}

ORTTensorDescription::ORTTensorDescription(kivcore::utility::ImmutableString name,
                                           ONNXTensorElementDataType elementType, DescriptionShapeType shape)
    : mName(std::move(name)),
      mKind(FeatureKind::kTensor),
      mElementType(elementType),
      mShape(std::move(shape)) {}

ORTTensorDescription::Descriptions ORTTensorDescription::DescribeSession(const OrtSession& session,
                                                                         SessionPart part) {
  const OrtApi& api = Api();
  const auto [getCount, getName, getTypeInfo] =
      part == SessionPart::kInputs
          ? std::tuple(api.SessionGetInputCount, api.SessionGetInputName, api.SessionGetInputTypeInfo)
      : part == SessionPart::kOverridableInitializers
          ? std::tuple(api.SessionGetOverridableInitializerCount, api.SessionGetOverridableInitializerName,
                       api.SessionGetOverridableInitializerTypeInfo)
          : std::tuple(api.SessionGetOutputCount, api.SessionGetOutputName, api.SessionGetOutputTypeInfo);
  OrtAllocator* allocator = DefaultAllocator();
  size_t count = 0;
  ThrowIfFailed(getCount(&session, &count));
  Descriptions descriptions;
  descriptions.reserve(count);
  for (size_t i = 0; i < count; ++i) {
    char* rawName = nullptr;
    ThrowIfFailed(getName(&session, i, allocator, &rawName));
    const AllocatedString name(allocator, rawName);
    OrtTypeInfo* typeInfo = nullptr;
    ThrowIfFailed(getTypeInfo(&session, i, &typeInfo));
    descriptions.push_back(kivcore::classref::CreateObject<ORTTensorDescription>(
        kivcore::utility::ImmutableString::Create(name.text), UniqueTypeInfo(typeInfo)));
  }
  return descriptions;
}

kivcore::utility::Guid ORTTensorDescription::GetTensorDataType() const {
  return FromONNXElementType(mElementType).value_or(kivcore::utility::Guid());
}

DescriptionShapeType ORTTensorDescription::ReadShape(const OrtTensorTypeAndShapeInfo& tensorInfo) {
  size_t rank = 0;
  ThrowIfFailed(Api().GetDimensionsCount(&tensorInfo, &rank));
  DescriptionShapeType shape(rank);
  ThrowIfFailed(Api().GetDimensions(&tensorInfo, shape.data(), rank));
  return shape;
}

void ORTTensorDescription::Describe(const OrtTensorTypeAndShapeInfo& tensorInfo) {
  mKind = FeatureKind::kTensor;
  ThrowIfFailed(Api().GetTensorElementType(&tensorInfo, &mElementType));
  mShape = ReadShape(tensorInfo);
  std::vector<const char*> names(mShape.size(), nullptr);
  ThrowIfFailed(Api().GetSymbolicDimensions(&tensorInfo, names.data(), names.size()));
  mDimensionNames.clear();
  for (const char* name : names) {
    mDimensionNames.emplace_back(name != nullptr ? name : "");
  }
}

}  // namespace kivml::ort
