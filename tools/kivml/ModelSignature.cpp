#include "ModelSignature.h"

#include <algorithm>
#include <optional>

#include "Formatting.h"
#include "InputFile.h"
#include "RawOrtSession.h"
#include "ToolError.h"
#include "kivcore/config/kiv_exception.h"
#include "kivml/CreatePreferredEvaluator.h"
#include "kivml/ITensorFeatureDescription.h"
#include "kivml/ONNXModelFactory.h"

namespace kivml::cli {

namespace {

std::vector<FeatureSignature> Join(const FeatureDescriptionVector& descriptions,
                                   const std::vector<RawFeature>& declared, bool batched) {
  std::vector<FeatureSignature> features;
  for (const RawFeature& raw : declared) {
    FeatureSignature feature;
    feature.name = raw.name;
    feature.declared = raw.dims;
    feature.symbols = raw.symbols;
    feature.symbols.resize(raw.dims.size());
    feature.requestShape.assign(raw.dims.begin(), raw.dims.end());
    feature.batchAxis = batched && !raw.dims.empty() && raw.dims.front() < 0;
    const auto found = std::find_if(descriptions.begin(), descriptions.end(), [&](const auto& description) {
      return description && description->GetName().View() == raw.name;
    });
    const auto tensor = found != descriptions.end() ? found->Query<ITensorFeatureDescription>() : nullptr;
    if (tensor) {
      feature.elementType = tensor->GetTensorDataType();
      feature.requestShape = tensor->GetTensorShape();
    }
    feature.typeName = feature.IsSupported() ? ElementTypeName(feature.elementType)
                                             : RawOrtSession::OnnxElementTypeName(raw.elementType);
    features.push_back(std::move(feature));
  }
  return features;
}

const FeatureSignature* FindByName(const std::vector<FeatureSignature>& features, std::string_view name) {
  const auto found = std::find_if(features.begin(), features.end(),
                                  [&](const FeatureSignature& feature) { return feature.name == name; });
  return found == features.end() ? nullptr : &*found;
}

}  // namespace

std::string FeatureSignature::DeclaredShapeText() const {
  std::string text = "[";
  for (size_t axis = 0; axis < declared.size(); ++axis) {
    text += axis == 0 ? "" : ", ";
    if (declared[axis] >= 0) {
      text += std::to_string(declared[axis]);
    } else {
      text += symbols[axis].empty() ? "?" : symbols[axis];
    }
  }
  return text + "]";
}

ModelSignature ModelSignature::Load(const std::filesystem::path& path, bool evaluateOnGPU) {
  InputFile::Require(path, "model file");
  ModelSignature signature;
  signature.mPath = path;
  signature.mGpuRequested = evaluateOnGPU;
  try {
    signature.mModel = CreateONNXModelFromFile(path, evaluateOnGPU);
  } catch (const kivcore::kiv_exception&) {
    throw ToolError("cannot load the model: " + DescribeFailure(std::current_exception()));
  }
  const RawOrtSession declared = RawOrtSession::ForDescription(path);
  const bool batched = signature.SupportsBatching();
  signature.mInputs = Join(signature.mModel->GetInputFeatureDescriptions(), declared.Inputs(), batched);
  signature.mOutputs = Join(signature.mModel->GetOutputFeatureDescriptions(), declared.Outputs(), batched);
  return signature;
}

const FeatureSignature* ModelSignature::FindInput(std::string_view name) const {
  return FindByName(mInputs, name);
}

const FeatureSignature* ModelSignature::FindOutput(std::string_view name) const {
  return FindByName(mOutputs, name);
}

std::string ModelSignature::InputNames() const {
  std::string names;
  for (const FeatureSignature& input : mInputs) {
    names += (names.empty() ? "" : ", ") + input.name;
  }
  return names;
}

void ModelSignature::RequireBatching() const {
  if (!SupportsBatching()) {
    throw ToolError(
        "--batched: the model cannot run batched: not every input has a leading free dimension that every "
        "output follows");
  }
}

void ModelSignature::RequireSupportedTypes() const {
  for (const auto* features : {&mInputs, &mOutputs}) {
    for (const FeatureSignature& feature : *features) {
      if (!feature.IsSupported()) {
        throw ToolError(std::string(features == &mInputs ? "input" : "output") + " '" + feature.name +
                        "' has element type " + feature.typeName +
                        ", which kivml cannot exchange (it takes " + SupportedElementTypeNames() + ")");
      }
    }
  }
}

kivcore::classref::InterfaceRef<IMLEvaluator> ModelSignature::StartEvaluator(const EvaluatorOptions& options,
                                                                             EvaluatorDevice* device) const {
  std::optional<EvaluatorDeviceWatch> watch;
  if (device != nullptr) {
    watch.emplace();
  }
  auto started = CreatePreferredEvaluator(mModel, options);
  started.Wait();
  if (device != nullptr) {
    *device = watch->Result(mGpuRequested);
    watch.reset();
  }
  try {
    return started.Get();
  } catch (...) {
    throw ToolError("the evaluator could not load the model: " + DescribeFailure(std::current_exception()));
  }
}

}  // namespace kivml::cli
