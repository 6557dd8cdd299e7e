#pragma once
// Describes a session's input or output in the library's terms: element type and shape (-1 where the
// model leaves a dimension free). Inputs and outputs that are not tensors (sequences, maps) have the kind
// kOther, no data type and no shape.

#include <onnxruntime_c_api.h>

#include <memory>
#include <string>
#include <vector>

#include "kivcore/classref/Implements.h"
#include "kivml/ITensorFeatureDescription.h"
#include "onnxruntime/ORTApi.h"

namespace kivml::ort {

class ORTTensorDescription final : public kivcore::classref::Implements<ITensorFeatureDescription> {
 public:
  ORTTensorDescription(kivcore::utility::ImmutableString name, UniqueTypeInfo typeInfo);
  ORTTensorDescription(kivcore::utility::ImmutableString name, const OrtTensorTypeAndShapeInfo& tensorInfo);
  ORTTensorDescription(kivcore::utility::ImmutableString name, ONNXTensorElementDataType elementType,
                       DescriptionShapeType shape);

  // \see IFeatureDescription
  kivcore::utility::ImmutableString GetName() const override { return mName; }
  FeatureKind GetKind() const override { return mKind; }
  // \see ITensorFeatureDescription. The null Guid for element types the library does not map.
  kivcore::utility::Guid GetTensorDataType() const override;
  DescriptionShapeType GetTensorShape() const override { return mShape; }

  ONNXTensorElementDataType GetONNXElementType() const noexcept { return mElementType; }
  // The model's name for each dimension ("N", "batch_size"); empty where it has none. Empty for
  // descriptions not read from a session.
  const std::vector<std::string>& GetDimensionNames() const noexcept { return mDimensionNames; }

  enum class SessionPart { kInputs, kOverridableInitializers, kOutputs };
  using Descriptions = std::vector<std::shared_ptr<ORTTensorDescription>>;
  // One description per input, overridable initializer or output of `session`, in the session's order.
  static Descriptions DescribeSession(const OrtSession& session, SessionPart part);

  // The shape a tensor info reports.
  static DescriptionShapeType ReadShape(const OrtTensorTypeAndShapeInfo& tensorInfo);

 private:
  void Describe(const OrtTensorTypeAndShapeInfo& tensorInfo);

  kivcore::utility::ImmutableString mName;
  FeatureKind mKind = FeatureKind::kOther;
  ONNXTensorElementDataType mElementType = ONNX_TENSOR_ELEMENT_DATA_TYPE_UNDEFINED;
  DescriptionShapeType mShape;
  std::vector<std::string> mDimensionNames;
};

}  // namespace kivml::ort
