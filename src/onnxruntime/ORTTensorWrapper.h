#pragma once
// A tensor feature over a value that ONNX Runtime returned from a run: no data is copied. A wrapper
// either stands for the whole value or for one item of a batched value (its slice along the first
// dimension, shaped with a first dimension of 1); item wrappers of one batch share the value, which is
// released when the last of them goes. Answers are read from the value on every call.

#include <onnxruntime_c_api.h>

#include <memory>
#include <optional>

#include "kivcore/classref/Implements.h"
#include "kivcore/classref/InterfaceRef.h"
#include "kivml/IMLFeature.h"
#include "kivml/ITensorFeatureDescription.h"
#include "kivml/ITensorMLFeatureAccessor.h"
#include "kivml/ITensorMLFeatureModifier.h"

namespace kivml::ort {

class ORTTensorWrapper final
    : public kivcore::classref::Implements<IMLFeature, ITensorMLFeatureAccessor, ITensorMLFeatureModifier> {
 public:
  // Shared ownership of a value, released with ReleaseValue by the last owner.
  static std::shared_ptr<OrtValue> Share(OrtValue* value);

  explicit ORTTensorWrapper(std::shared_ptr<OrtValue> value);
  ORTTensorWrapper(std::shared_ptr<OrtValue> value, uint64_t item);

  // \see ITensorMLFeatureAccessor. GetDataTypeSize throws PredictException(0xED6C0003) for element types
  // the library does not map.
  uint64_t GetCount() const override;
  ShapeType GetShape() const override;
  StrideType GetStrides() const override;
  const void* GetData() const override;
  uint64_t GetDataTypeSize() const override;
  kivcore::classref::InterfaceRef<IMLFeature> GetFeatureRef() const override;

  // \see ITensorMLFeatureModifier
  void* GetMutableData() override;

  kivcore::classref::InterfaceRef<ITensorFeatureDescription> GetDescription() const;

 private:
  // Elements this wrapper stands for: the whole value's, or one item's share of them.
  uint64_t ItemElements(const OrtTensorTypeAndShapeInfo& info) const;
  static uint64_t ElementSize(const OrtTensorTypeAndShapeInfo& info);
  char* ItemData() const;

  std::shared_ptr<OrtValue> mValue;
  std::optional<uint64_t> mItem;
};

}  // namespace kivml::ort
