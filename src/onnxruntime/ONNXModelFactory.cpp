#include "kivml/ONNXModelFactory.h"

#include <algorithm>
#include <set>
#include <string>

#include "kivcore/config/kiv_exception.h"
#include "kivcore/filesupport/File.h"
#include "kivcore/filesupport/FileUtils.h"
#include "kivml/ResultCodes.h"
#include "onnxruntime/ORTApi.h"
#include "onnxruntime/ORTEnvironment.h"
#include "onnxruntime/ORTTensorDescription.h"

namespace kivml {

namespace {

using ort::ORTTensorDescription;
using ort::UniqueSession;
using ort::UniqueSessionOptions;

[[noreturn]] void ThrowUnreadable(std::string_view name, std::string_view why) {
  const std::string message =
      "Cannot describe the ONNX model '" + std::string(name) + "': " + std::string(why);
  throw kivcore::kiv_exception(message.c_str(), eBadFeatureDescriptions);
}

bool HasLeadingFreeDimension(const ORTTensorDescription& description) {
  const DescriptionShapeType shape = description.GetTensorShape();
  return description.GetKind() == FeatureKind::kTensor && !shape.empty() && shape.front() == -1;
}

// A batch size for telling which outputs follow the inputs' batch dimension: no size a model fixes an
// output's leading dimension to, and divisible by the small factors a reshape may split a batch by.
constexpr int64_t kProbeBatchSize = 6720;

UniqueSession CreateSession(OrtEnv* env, const kivcore::allocator::RecycledMemory& payload,
                            const OrtSessionOptions& options) {
  OrtSession* session = nullptr;
  ort::ThrowIfFailed(
      ort::Api().CreateSessionFromArray(env, payload.Buffer(), payload.Size(), &options, &session));
  return UniqueSession(session);
}

UniqueSessionOptions CreateSessionOptions(GraphOptimizationLevel level) {
  const OrtApi& api = ort::Api();
  OrtSessionOptions* options = nullptr;
  ort::ThrowIfFailed(api.CreateSessionOptions(&options));
  UniqueSessionOptions owned(options);
  ort::ThrowIfFailed(api.DisablePerSessionThreads(options));
  ort::ThrowIfFailed(api.SetSessionGraphOptimizationLevel(options, level));
  return owned;
}

// Whether every output carries the inputs' batch dimension, so that a batch's outputs split into one row
// per request. The batch is fixed to a probe size, by the inputs' names for it and by the "DATA_BATCH"
// denotation, and ONNX Runtime's shape inference tells which outputs follow it: a sum over the rows, a
// fixed-size output or one that counts something else does not. Exporters often name the outputs'
// batch differently from the inputs', so names alone cannot tell.
bool OutputsFollowTheBatch(OrtEnv* env, const kivcore::allocator::RecycledMemory& payload,
                           const ORTTensorDescription::Descriptions& inputs) {
  const UniqueSessionOptions options = CreateSessionOptions(ORT_ENABLE_BASIC);  // basic: shapes are inferred
  const OrtApi& api = ort::Api();
  ort::ThrowIfFailed(api.AddFreeDimensionOverride(options.get(), "DATA_BATCH", kProbeBatchSize));
  std::set<std::string> batchNames;
  for (const auto& input : inputs) {
    const std::string& name = input->GetDimensionNames().front();
    if (!name.empty() && batchNames.insert(name).second) {
      ort::ThrowIfFailed(api.AddFreeDimensionOverrideByName(options.get(), name.c_str(), kProbeBatchSize));
    }
  }
  UniqueSession probe;
  try {
    probe = CreateSession(env, payload, *options);
  } catch (const Ort::Exception&) {
    return false;  // the model cannot take the probe's batch at all, so it cannot be told to batch
  }
  // An input whose batch has neither a name nor the denotation stays free; outputs can then only be
  // asked to be free where it leads.
  const auto probedInputs =
      ORTTensorDescription::DescribeSession(*probe, ORTTensorDescription::SessionPart::kInputs);
  const bool someBatchUnnamed = std::any_of(probedInputs.begin(), probedInputs.end(), [](const auto& input) {
    return HasLeadingFreeDimension(*input);
  });
  const auto outputs =
      ORTTensorDescription::DescribeSession(*probe, ORTTensorDescription::SessionPart::kOutputs);
  return std::all_of(outputs.begin(), outputs.end(), [&](const auto& output) {
    const DescriptionShapeType shape = output->GetTensorShape();
    return output->GetKind() == FeatureKind::kTensor && !shape.empty() &&
           (shape.front() == kProbeBatchSize || (someBatchUnnamed && shape.front() == -1));
  });
}

// A request's view of `descriptions`: with batching, the leading free dimension is one item.
FeatureDescriptionVector PerRequest(const ORTTensorDescription::Descriptions& descriptions, bool batched) {
  FeatureDescriptionVector result;
  result.reserve(descriptions.size());
  for (const auto& description : descriptions) {
    if (batched && HasLeadingFreeDimension(*description)) {
      DescriptionShapeType shape = description->GetTensorShape();
      shape.front() = 1;
      result.push_back(kivcore::classref::MakeInterfaceRef<IFeatureDescription>(
          kivcore::classref::CreateObject<ORTTensorDescription>(description->GetName(),
                                                                description->GetONNXElementType(), shape)));
    } else {
      result.push_back(kivcore::classref::MakeInterfaceRef<IFeatureDescription>(description));
    }
  }
  return result;
}

}  // namespace

kivcore::classref::InterfaceRef<ModelMock> CreateONNXModelFromBuffer(
    kivcore::utility::ImmutableString name, std::shared_ptr<kivcore::allocator::RecycledMemory> payload,
    bool evaluateOnGPU) {
  if (!payload || payload->Size() == 0) {
    ThrowUnreadable(name.View(), "the payload is empty");
  }
  OrtEnv* env = ort::ORTEnvironment::Get();
  if (env == nullptr) {
    ThrowUnreadable(name.View(), "ONNX Runtime is not initialized: run the library's initializers first");
  }
  ORTTensorDescription::Descriptions inputs;
  ORTTensorDescription::Descriptions outputs;
  bool batched = false;
  try {
    // Only the interface is read: optimising the graph would be wasted work.
    const UniqueSession session = CreateSession(env, *payload, *CreateSessionOptions(ORT_DISABLE_ALL));
    inputs = ORTTensorDescription::DescribeSession(*session, ORTTensorDescription::SessionPart::kInputs);
    outputs = ORTTensorDescription::DescribeSession(*session, ORTTensorDescription::SessionPart::kOutputs);
    batched = !inputs.empty() && std::all_of(inputs.begin(), inputs.end(), [](const auto& description) {
      return HasLeadingFreeDimension(*description);
    }) && OutputsFollowTheBatch(env, *payload, inputs);
  } catch (const Ort::Exception& exception) {
    ThrowUnreadable(name.View(), exception.what());
  }
  auto model = kivcore::classref::CreateObject<ModelMock>(
      std::move(name), std::move(payload), PerRequest(inputs, batched), PerRequest(outputs, batched));
  model->SetSupportsBatchedInference(batched);
  model->SetShouldEvaluateOnGPU(evaluateOnGPU);
  return kivcore::classref::InterfaceRef<ModelMock>(std::move(model));
}

kivcore::classref::InterfaceRef<ModelMock> CreateONNXModelFromFile(const std::filesystem::path& path,
                                                                   bool evaluateOnGPU) {
  const std::wstring widePath = path.wstring();
  const kivcore::wstring corePath(widePath.begin(), widePath.end());
  auto payload = kivcore::utility::FileUtils::SimpleReadFileIntoBuffer(corePath);
  if (!payload) {
    ThrowUnreadable(path.string(), "the file cannot be read");
  }
  auto model =
      CreateONNXModelFromBuffer(kivcore::utility::ImmutableString::Create(path.stem().string().c_str()),
                                std::move(payload), evaluateOnGPU);
  const std::wstring wideName = path.filename().wstring();
  const std::wstring wideDir = path.parent_path().wstring();
  model->SetONNXMLModelFile(
      kivcore::filesupport::File(kivcore::filesupport::Dir(kivcore::wstring(wideDir.begin(), wideDir.end())),
                                 kivcore::wstring(wideName.begin(), wideName.end())));
  return model;
}

}  // namespace kivml
