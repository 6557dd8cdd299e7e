#pragma once
// A model as the tool presents it: the library's model object with its per-request descriptions, joined
// by name with the interface the ONNX file declares (free dimensions with their symbolic names, element
// types the library cannot carry). Every command starts here.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "EvaluatorDevice.h"
#include "kivcore/classref/InterfaceRef.h"
#include "kivcore/utility/Guid.h"
#include "kivml/EvaluatorOptions.h"
#include "kivml/IMLEvaluator.h"
#include "kivml/ModelMock.h"
#include "kivml/TensorFeatureTypes.h"

namespace kivml::cli {

struct FeatureSignature {
  std::string name;
  kivcore::utility::Guid elementType;  // nil for a type the library cannot carry
  std::string typeName;                // "float32"; ONNX Runtime's name for the others ("float16")
  DescriptionShapeType requestShape;   // one request, as the library fits it: -1 free, the batch 1
  std::vector<int64_t> declared;       // as the file declares it: -1 for every free dimension
  std::vector<std::string> symbols;    // each dimension's name; empty when it has none
  bool batchAxis = false;              // the leading dimension is the batch

  bool IsSupported() const { return !elementType.IsNil(); }
  // "[N, 3, H, W]": symbolic names where the model gives them, "?" for other free dimensions.
  std::string DeclaredShapeText() const;
};

class ModelSignature {
 public:
  // Throws ToolError when the file is missing or neither the library nor ONNX Runtime can read it.
  static ModelSignature Load(const std::filesystem::path& path, bool evaluateOnGPU);

  const std::filesystem::path& Path() const { return mPath; }
  const kivcore::classref::InterfaceRef<ModelMock>& Model() const { return mModel; }
  const std::vector<FeatureSignature>& Inputs() const { return mInputs; }
  const std::vector<FeatureSignature>& Outputs() const { return mOutputs; }
  bool SupportsBatching() const { return mModel->DoesSupportBatchedInference(); }

  const FeatureSignature* FindInput(std::string_view name) const;
  const FeatureSignature* FindOutput(std::string_view name) const;
  // "input1, input2", for messages.
  std::string InputNames() const;
  // Throws ToolError naming the first input or output whose element type the library cannot carry.
  void RequireSupportedTypes() const;
  // Throws ToolError, for --batched, when the model cannot run batched.
  void RequireBatching() const;

  // Starts an evaluator and waits for the model to load; throws ToolError with the result code.
  // `device`, when given, learns whether the evaluator got the GPU it may have asked for.
  kivcore::classref::InterfaceRef<IMLEvaluator> StartEvaluator(const EvaluatorOptions& options,
                                                               EvaluatorDevice* device = nullptr) const;

 private:
  std::filesystem::path mPath;
  bool mGpuRequested = false;
  kivcore::classref::InterfaceRef<ModelMock> mModel;
  std::vector<FeatureSignature> mInputs;
  std::vector<FeatureSignature> mOutputs;
};

}  // namespace kivml::cli
