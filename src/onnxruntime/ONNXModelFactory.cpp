#include "kivml/ONNXModelFactory.h"

#include <algorithm>
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

[[noreturn]] void ThrowUnreadable(std::string_view name, std::string_view why) {
  const std::string message =
      "Cannot describe the ONNX model '" + std::string(name) + "': " + std::string(why);
  throw kivcore::kiv_exception(message.c_str(), eBadFeatureDescriptions);
}

bool HasLeadingFreeDimension(const ORTTensorDescription& description) {
  const DescriptionShapeType shape = description.GetTensorShape();
  return description.GetKind() == FeatureKind::kTensor && !shape.empty() && shape.front() == -1;
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
  try {
    const OrtApi& api = ort::Api();
    OrtSessionOptions* rawOptions = nullptr;
    ort::ThrowIfFailed(api.CreateSessionOptions(&rawOptions));
    const ort::UniqueSessionOptions options(rawOptions);
    ort::ThrowIfFailed(api.DisablePerSessionThreads(options.get()));
    // Only the interface is read: optimising the graph would be wasted work.
    ort::ThrowIfFailed(api.SetSessionGraphOptimizationLevel(options.get(), ORT_DISABLE_ALL));
    OrtSession* rawSession = nullptr;
    ort::ThrowIfFailed(
        api.CreateSessionFromArray(env, payload->Buffer(), payload->Size(), options.get(), &rawSession));
    const ort::UniqueSession session(rawSession);
    inputs = ORTTensorDescription::DescribeSession(*session, ORTTensorDescription::SessionPart::kInputs);
    outputs = ORTTensorDescription::DescribeSession(*session, ORTTensorDescription::SessionPart::kOutputs);
  } catch (const Ort::Exception& exception) {
    ThrowUnreadable(name.View(), exception.what());
  }
  const bool batched =
      !inputs.empty() && std::all_of(inputs.begin(), inputs.end(), [](const auto& description) {
        return HasLeadingFreeDimension(*description);
      });
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
