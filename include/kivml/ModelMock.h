#pragma once
// A model object for hosts and tests: a name, an ONNX payload in memory and hand-written feature
// descriptions. Configure it before handing it to an evaluator; evaluators only read it.
// CreateONNXModelFromFile/Buffer (ONNXModelFactory.h) make one with descriptions read from the model.

#include <array>
#include <cstdint>
#include <memory>

#include "kivcore/allocator/RecycledMemory.h"
#include "kivcore/classref/Implements.h"
#include "kivcore/filesupport/File.h"
#include "kivcore/utility/ImmutableString.h"
#include "kivml/IMLModel.h"
#include "kivml/IONNXMLModelAccessor.h"
#include "kivml/kivml_export.h"

namespace kivml {

class KIVML_EXPORT ModelMock : public kivcore::classref::Implements<IMLModel, IONNXMLModelAccessor> {
 public:
  ModelMock(kivcore::utility::ImmutableString name,
            std::shared_ptr<kivcore::allocator::RecycledMemory> payload, FeatureDescriptionVector inputs,
            FeatureDescriptionVector outputs);

  void SetSupportsBatchedInference(bool supported) { mSupportsBatchedInference = supported; }
  void SetShouldEvaluateOnGPU(bool onGPU) { mEvaluateOnGPU = onGPU; }
  // Marks the payload as enciphered with `key`. The payload itself must still be plain ONNX bytes: the
  // mock deciphers nothing.
  void SetEncryptionKey(const std::array<uint8_t, 16>& key);
  // The file the payload was read from, when there was one.
  void SetONNXMLModelFile(kivcore::filesupport::File file) { mFile = std::move(file); }
  kivcore::filesupport::File GetONNXMLModelFile() const { return mFile; }

  // \see IMLModel
  kivcore::utility::ImmutableString GetName() const override { return mName; }
  bool IsEncrypted() const override { return mEncrypted; }
  std::array<uint8_t, 16> GetEncryptionKey() const override { return mKey; }
  FeatureDescriptionVector GetInputFeatureDescriptions() const override { return mInputs; }
  FeatureDescriptionVector GetOutputFeatureDescriptions() const override { return mOutputs; }
  bool DoesSupportBatchedInference() const override { return mSupportsBatchedInference; }

  // \see IONNXMLModelAccessor
  std::shared_ptr<kivcore::allocator::RecycledMemory> GetONNXMLModel() const override { return mPayload; }
  bool ShouldEvaluateOnGPU() const override { return mEvaluateOnGPU; }

 private:
  kivcore::utility::ImmutableString mName;
  std::shared_ptr<kivcore::allocator::RecycledMemory> mPayload;
  FeatureDescriptionVector mInputs;
  FeatureDescriptionVector mOutputs;
  kivcore::filesupport::File mFile;
  std::array<uint8_t, 16> mKey{};
  bool mEncrypted = false;
  bool mSupportsBatchedInference = true;
  bool mEvaluateOnGPU = false;
};

}  // namespace kivml
