#include "onnxruntime/ORTEvaluator.h"

#include <algorithm>
#include <mutex>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "ExitBarrier.h"
#include "kivcore/config/NestedException.h"
#include "kivcore/config/kiv_exception.h"
#include "kivcore/debug/DebugDatabase.h"
#include "kivcore/debug/ProfileRegion.h"
#include "kivcore/debug/Trace.h"
#include "kivcore/logging/Logging.h"
#include "kivcore/string/StringConversions.h"
#include "kivcore/utility/Indestructible.h"
#include "kivml/IONNXMLModelAccessor.h"
#include "kivml/ResultCodes.h"
#include "kivml/SetModelException.h"
#include "kivml/Settings.h"
#include "onnxruntime/ConfigureSessionOptions.h"
#include "onnxruntime/ExecutionProviders.h"
#include "onnxruntime/ORTElementTypes.h"
#include "onnxruntime/ORTEnvironment.h"
#include "onnxruntime/ORTTensorConversion.h"
#include "onnxruntime/PredictException.h"
#include "utility/TraceCategory.h"

namespace kivml::ort {

namespace {

using TensorHolders = std::vector<kivcore::classref::InterfaceRef<ITensorMLFeatureAccessor>>;

bool ProfilingRequested() {
  auto& database = kivcore::debug::DebugDatabase::Instance();
  const std::string_view key = settings::kProfileModels.key;
  return database.HasEntry(key) && database.GetEntry(key) == "true";
}

// ONNX Runtime takes paths in its own character type (wide on Windows). A template, so that only the
// branch for that type is compiled.
template <class Char>
std::basic_string<Char> InOrtCharacters(const std::string& text) {
  if constexpr (std::is_same_v<Char, char>) {
    return text;
  } else {
    const kivcore::wstring wide = kivcore::string::UTF8to16(text);
    return std::basic_string<Char>(wide.begin(), wide.end());
  }
}

std::basic_string<ORTCHAR_T> ProfilePrefix(const kivcore::utility::ImmutableString& modelName) {
  return InOrtCharacters<ORTCHAR_T>("profile_" + std::string(modelName.View()));
}

// SetModelException with its fixed message, and `reason` attached as its cause.
[[noreturn]] void ThrowCannotLoad(const char* reason) {
  std::rethrow_exception(kivcore::config::MakeNestedException(
      SetModelException(eNoSession), std::make_exception_ptr(kivcore::kiv_exception(reason, eNoSession))));
}

[[noreturn]] void ThrowBadFeature(const std::string& message) {
  throw kivcore::kiv_exception(message.c_str(), eBadFeature);
}

// `described` as one item of a batch: the first dimension counts items, and an item is one of them.
DescriptionShapeType AsBatchItem(std::string_view inputName, DescriptionShapeType described) {
  if (described.empty()) {
    ThrowBadFeature("Input '" + std::string(inputName) +
                    "' has no batch dimension: the model cannot run batched");
  }
  described.front() = 1;
  return described;
}

UniqueModelMetadata ReadModelMetadata(const OrtSession& session) {
  OrtModelMetadata* metadata = nullptr;
  ThrowIfFailed(Api().SessionGetModelMetadata(&session, &metadata));
  return UniqueModelMetadata(metadata);
}

// The custom metadata value under `key`; empty when there is none.
kivcore::u8string LookupCustomMetadata(const OrtModelMetadata& metadata, OrtAllocator* allocator,
                                       const char* key) {
  char* rawValue = nullptr;
  ThrowIfFailed(Api().ModelMetadataLookupCustomMetadataMap(&metadata, allocator, key, &rawValue));
  const AllocatedString value(allocator, rawValue);
  return kivcore::string::ToU8(value.text != nullptr ? value.text : "");
}

// Keeps what an evaluator destroyed during exit still holds, unreleased: reachable from here until the
// process ends, so that leak checkers do not count it.
void KeepUntilExit(UniqueSession session, UniqueSessionOptions options) noexcept {
  static auto* const mutex = new std::mutex();
  static auto* const kept = new std::vector<std::pair<OrtSession*, OrtSessionOptions*>>();
  try {
    std::lock_guard lock(*mutex);
    kept->emplace_back(session.get(), options.get());
  } catch (...) {
    // Without memory to note them in, they are simply not released.
  }
  static_cast<void>(session.release());
  static_cast<void>(options.release());
}

}  // namespace

ORTEvaluator::ORTEvaluator() {
  OrtSessionOptions* options = nullptr;
  ThrowIfFailed(Api().CreateSessionOptions(&options));
  mSessionOptions.reset(options);
}

ORTEvaluator::~ORTEvaluator() {
  // The last reference may go on any thread, such as the one completing the future that delivered this
  // evaluator, while the process exits. Counted as a run, the release is waited for before ONNX Runtime's
  // environment goes; once exit has begun, the session is left to the process's end instead of being
  // released into an environment that is being torn down.
  const ExitBarrier::Scope run;
  if (ExitBarrier::Exiting()) {
    KeepUntilExit(std::move(mSession), std::move(mSessionOptions));
    return;
  }
  if (mProfilingEnabled && mSession) {
    try {
      OrtAllocator* allocator = DefaultAllocator();
      char* file = nullptr;
      ThrowIfFailed(Api().SessionEndProfiling(mSession.get(), allocator, &file));
      AllocatedString release(allocator, file);
    } catch (...) {
      kivcore::logging::LogException(std::current_exception(), "kivml::ORTEvaluator::~ORTEvaluator", nullptr);
    }
  }
  mSession.reset();
  mSessionOptions.reset();
}

void ORTEvaluator::Create(kivcore::classref::InterfaceRef<kivcore::classref::UnknownBase>& instance) {
  instance = kivcore::classref::MakeInterfaceRef<kivcore::classref::UnknownBase>(
      kivcore::classref::CreateObject<ORTEvaluator>());
}

kivcore::classref::InterfaceRef<IMLEvaluator> ORTEvaluator::GetEvaluatorRef() {
  return kivcore::classref::InterfaceRef<IMLEvaluator>(
      std::shared_ptr<IMLEvaluator>(GetSharedFromThis(), static_cast<IMLEvaluator*>(this)));
}

int ORTEvaluator::LoadModel() {
  const auto model = GetModel();
  const auto accessor = model ? model.Query<IONNXMLModelAccessor>() : nullptr;
  if (!accessor) {
    ThrowCannotLoad(model ? "The model has no ONNX payload (it offers no IONNXMLModelAccessor)"
                          : "No model has been set");
  }
  if (mSession) {
    ThrowCannotLoad("The model is loaded already");
  }
  const auto payload = accessor->GetONNXMLModel();
  if (!payload || payload->Size() == 0) {
    ThrowCannotLoad("The model's ONNX payload is empty");
  }
  if (GetShouldUseBatching()) {
    mBatchSize = static_cast<int64_t>(GetBatchSize());
  }

  mProfilingEnabled = ProfilingRequested();
  const ExecutionProvider* gpu =
      accessor->ShouldEvaluateOnGPU() ? ExecutionProviders::PlatformGPU() : nullptr;
  if (gpu != nullptr && TryGPUSession(*gpu, *payload, model->GetName())) {
    mProvider = gpu;
  } else {
    CreateCPUSession(*payload, model->GetName(), gpu != nullptr);
    mProvider = &ExecutionProviders::CPU();
  }
  // An evaluator's worker may release its session while the process exits; exit must wait for it before
  // ONNX Runtime tears down what sessions use, state that each provider builds with its first session.
  mProvider->WaitForWorkersAtExit();
  DescribeModel();
  // Where the model batches, its leading free dimension is the batch, and a request is one item of it
  // whether or not this evaluator batches: both kinds then take the same requests.
  mOneItemPerRequest = model->DoesSupportBatchedInference();
  mRunsShortBatches =
      !mProvider->NeedsFixedShapes() &&
      std::none_of(mInputDescriptions.begin(), mInputDescriptions.end(), [](const auto& entry) {
        const DescriptionShapeType shape = entry.second->GetTensorShape();
        return !shape.empty() && shape.front() >= 0;
      });
  mLoaded.store(true);
  return 0;
}

bool ORTEvaluator::TryGPUSession(const ExecutionProvider& gpu,
                                 const kivcore::allocator::RecycledMemory& payload,
                                 const kivcore::utility::ImmutableString& modelName) {
  if (mProfilingEnabled) {
    EnableProfiling(modelName);
  }
  try {
    mSessionSettings = ConfigureSessionOptions(mSessionOptions.get(), GetSessionBatchSize(), gpu);
    CreateSession(payload);
  } catch (...) {
    if (!gpu.IsSetupFailure(std::current_exception())) {
      throw;
    }
    kivcore::logging::LogException(std::current_exception(), "kivml::OrtEvaluator::LoadModel", nullptr);
  }
  if (!mSession) {
    KIV_TRACE(kTraceCategory, 5, "Falling back to CPU ORT evaluation");
  }
  return mSession != nullptr;
}

void ORTEvaluator::CreateCPUSession(const kivcore::allocator::RecycledMemory& payload,
                                    const kivcore::utility::ImmutableString& modelName,
                                    bool afterGPUAttempt) {
  // Fresh options: whatever a GPU attempt added must not reach the CPU session. That includes the profiling
  // request made for it, which is deliberately not repeated: a CPU session after a failed GPU attempt is
  // never profiled.
  OrtSessionOptions* options = nullptr;
  ThrowIfFailed(Api().CreateSessionOptions(&options));
  mSessionOptions.reset(options);
  if (mProfilingEnabled && !afterGPUAttempt) {
    EnableProfiling(modelName);
  }
  mSessionSettings =
      ConfigureSessionOptions(mSessionOptions.get(), GetSessionBatchSize(), ExecutionProviders::CPU());
  CreateSession(payload);
}

void ORTEvaluator::EnableProfiling(const kivcore::utility::ImmutableString& modelName) {
  ThrowIfFailed(Api().EnableProfiling(mSessionOptions.get(), ProfilePrefix(modelName).c_str()));
}

int ORTEvaluator::CheckHealth() {
  return mLoaded.load() ? 0 : eNoSession;
}

void ORTEvaluator::CreateSession(const kivcore::allocator::RecycledMemory& payload) {
  OrtEnv* env = ORTEnvironment::Get();
  if (env == nullptr) {
    throw kivcore::kiv_exception("ONNX Runtime is not initialized: run the library's initializers first",
                                 eNoSession);
  }
  OrtSession* session = nullptr;
  ThrowIfFailed(
      Api().CreateSessionFromArray(env, payload.Buffer(), payload.Size(), mSessionOptions.get(), &session));
  mSession.reset(session);
}

void ORTEvaluator::DescribeModel() {
  using Part = ORTTensorDescription::SessionPart;
  mInputDescriptions.clear();
  mOutputDescriptions.clear();
  mRequiredInputs.clear();
  mOutputNames = OutputNames();
  for (const Part part : {Part::kInputs, Part::kOverridableInitializers}) {
    for (auto& description : ORTTensorDescription::DescribeSession(*mSession, part)) {
      std::string name(description->GetName().View());
      if (part == Part::kInputs) {
        mRequiredInputs.push_back(name);
      }
      mInputDescriptions.insert_or_assign(std::move(name), std::move(description));
    }
  }
  for (auto& description : ORTTensorDescription::DescribeSession(*mSession, Part::kOutputs)) {
    mOutputNames.names.emplace_back(description->GetName().View());
    mOutputNames.immutables.push_back(description->GetName());
    mOutputDescriptions.insert_or_assign(mOutputNames.names.back(), std::move(description));
  }
  for (const std::string& name : mOutputNames.names) {
    mOutputNames.pointers.push_back(name.c_str());
  }
}

ORTEvaluator::FittedInputs ORTEvaluator::FitRow(const utility::FeatureContainerVector& row, bool asBatchItem,
                                                TensorHolders& holders) const {
  FittedInputs fitted;
  fitted.reserve(row.size());
  for (const auto& container : row) {
    auto tensor = container.mFeature ? container.mFeature.Query<ITensorMLFeatureAccessor>() : nullptr;
    if (!tensor) {
      break;  // inputs end at the first feature that is not a tensor
    }
    const std::string_view name = container.mFeatureName.View();
    const auto found = mInputDescriptions.find(name);
    if (found == mInputDescriptions.end()) {
      ThrowBadFeature("Input '" + std::string(name) + "' is not an input of the model");
    }
    if (std::any_of(fitted.begin(), fitted.end(),
                    [&](const FittedInput& input) { return name == input.name; })) {
      ThrowBadFeature("Input '" + std::string(name) + "' is given more than once in the request");
    }
    const ORTTensorDescription& description = *found->second;
    const ONNXTensorElementDataType type = ToONNXElementType(description.GetTensorDataType());
    DescriptionShapeType described = description.GetTensorShape();
    if (asBatchItem) {
      described = AsBatchItem(name, std::move(described));
    } else if (mOneItemPerRequest && !described.empty() && described.front() == -1) {
      described.front() = 1;  // the batch, though this evaluator runs requests one by one
    }
    const DescriptionShapeType shape = FitToDescription(name, *tensor, described, type);
    fitted.push_back({container.mFeatureName.c_str(), tensor.get(), shape, type});
    holders.push_back(std::move(tensor));
  }
  if (fitted.empty() && !mRequiredInputs.empty()) {
    throw kivcore::kiv_exception("The request carries no input features", eNoInputFeatures);
  }
  for (const std::string& required : mRequiredInputs) {
    if (std::none_of(fitted.begin(), fitted.end(),
                     [&](const FittedInput& input) { return required == input.name; })) {
      ThrowBadFeature("Input '" + required + "' is missing from the request");
    }
  }
  return fitted;
}

std::vector<UniqueValue> ORTEvaluator::Run(const std::vector<const char*>& names,
                                           const std::vector<UniqueValue>& values) {
  const OrtApi& api = Api();
  std::vector<const OrtValue*> inputs;
  inputs.reserve(values.size());
  for (const auto& value : values) {
    inputs.push_back(value.get());
  }
  const size_t outputCount = mOutputNames.pointers.size();
  std::vector<OrtValue*> outputs(outputCount, nullptr);  // null: ONNX Runtime allocates every output
  OrtRunOptions* rawRunOptions = nullptr;
  ThrowIfFailed(api.CreateRunOptions(&rawRunOptions));
  const UniqueRunOptions runOptions(rawRunOptions);
  ThrowIfFailed(api.Run(mSession.get(), runOptions.get(), names.data(), inputs.data(), inputs.size(),
                        mOutputNames.pointers.data(), outputCount, outputs.data()));
  std::vector<UniqueValue> owned;
  owned.reserve(outputCount);
  for (OrtValue* output : outputs) {
    if (output != nullptr) {
      owned.emplace_back(output);
    }
  }
  return owned;
}

utility::FeatureContainerVector ORTEvaluator::Predict(const utility::FeatureContainerVector& inputs) {
  static kivcore::utility::Indestructible<kivcore::debug::ProfileRegion> region(
      "kivmachinelearning.ORTEvaluator Predict");
  if (!mLoaded.load()) {
    throw PredictException(eNoSession);
  }
  TensorHolders holders;
  const FittedInputs fitted = FitRow(inputs, false, holders);
  std::vector<const char*> names;
  std::vector<UniqueValue> values;
  for (const FittedInput& input : fitted) {
    names.push_back(input.name);
    values.push_back(BorrowAsValue(*input.tensor, input.shape, input.type));
  }
  std::vector<UniqueValue> outputs;
  {
    auto scope = region->Scope();
    outputs = Run(names, values);
  }
  utility::FeatureContainerVector result;
  result.reserve(outputs.size());
  for (size_t i = 0; i < outputs.size() && i < mOutputNames.immutables.size(); ++i) {
    result.push_back({mOutputNames.immutables[i], WrapValue(std::move(outputs[i]))});
  }
  return result;
}

ORTEvaluator::BatchOutputs ORTEvaluator::PredictBatch(const BatchRows& batch) {
  static kivcore::utility::Indestructible<kivcore::debug::ProfileRegion> region(
      "kivmachinelearning.ORTEvaluator PredictBatch");
  if (!mLoaded.load()) {
    throw PredictException(eNoSession);
  }
  BatchOutputs result(batch.size());
  if (batch.empty()) {
    return result;
  }
  TensorHolders holders;
  std::vector<FittedInputs> rows;
  rows.reserve(batch.size());
  for (const auto& row : batch) {
    rows.push_back(FitRow(row, true, holders));
  }
  // Inputs are joined by the first row's names; every row must carry the same inputs with the same shapes.
  std::vector<const char*> names;
  std::vector<UniqueValue> values;
  std::vector<const ITensorMLFeatureAccessor*> items(batch.size());
  for (const FittedInput& input : rows.front()) {
    for (size_t r = 0; r < rows.size(); ++r) {
      const auto match = std::find_if(rows[r].begin(), rows[r].end(), [&](const FittedInput& candidate) {
        return std::string_view(candidate.name) == input.name;
      });
      if (match == rows[r].end() || match->shape != input.shape) {
        ThrowBadFeature("Input '" + std::string(input.name) + "' differs between the rows of a batch");
      }
      items[r] = match->tensor;
    }
    names.push_back(input.name);
    values.push_back(JoinAsValue(items, input.shape, input.type));
  }
  std::vector<UniqueValue> outputs;
  {
    auto scope = region->Scope();
    outputs = Run(names, values);
  }
  if (outputs.size() != mOutputNames.immutables.size()) {
    return result;
  }
  for (size_t i = 0; i < outputs.size(); ++i) {
    const std::string& name = mOutputNames.names[i];
    // A first dimension that the model fixes to anything but the batch counts something else, even where
    // it equals the rows by chance.
    const DescriptionShapeType described = mOutputDescriptions.at(name)->GetTensorShape();
    if (!described.empty() && described.front() >= 0 && described.front() != GetSessionBatchSize()) {
      ThrowNotSplittable(name, described, batch.size());
    }
    FeatureRefVector features = SplitValue(name, std::move(outputs[i]), batch.size());
    for (size_t item = 0; item < batch.size(); ++item) {
      result[item].push_back({mOutputNames.immutables[i], std::move(features[item])});
    }
  }
  return result;
}

int ORTEvaluator::PredictBatched(const BatchRows& batch, BatchOutputs& outputs) {
  outputs = PredictBatch(batch);
  return 0;
}

void ORTEvaluator::CheckBatchRow(const utility::FeatureContainerVector& row,
                                 const utility::FeatureContainerVector* firstRow) {
  TensorHolders holders;
  const FittedInputs fitted = FitRow(row, true, holders);
  if (firstRow == nullptr) {
    return;
  }
  // The first row fits the model already, so agreeing with it means having the same tensor shapes.
  size_t firstRowInputs = 0;
  for (const auto& container : *firstRow) {
    const auto tensor = container.mFeature ? container.mFeature.Query<ITensorMLFeatureAccessor>() : nullptr;
    if (!tensor) {
      break;
    }
    ++firstRowInputs;
    const auto match = std::find_if(fitted.begin(), fitted.end(), [&](const FittedInput& input) {
      return container.mFeatureName.View() == input.name;
    });
    if (match == fitted.end() || match->tensor->GetShape() != tensor->GetShape()) {
      ThrowBadFeature("Input '" + std::string(container.mFeatureName.View()) +
                      "' does not match the first request of its batch: requests batched together must agree "
                      "on their free dimensions");
    }
  }
  if (fitted.size() != firstRowInputs) {
    ThrowBadFeature("The request's inputs differ from those of the first request of its batch");
  }
}

kivcore::u8string ORTEvaluator::LookupMetadata(const kivcore::u8string& key) {
  kivcore::u8string value;
  if (!mLoaded.load()) {
    return value;  // the session is not there yet, or is still being set up on the worker
  }
  try {
    const std::string plainKey(key.begin(), key.end());
    value = LookupCustomMetadata(*ReadModelMetadata(*mSession), DefaultAllocator(), plainKey.c_str());
  } catch (...) {
    kivcore::logging::LogException(std::current_exception(), "ORTEvaluator::LookupMetadata", nullptr);
  }
  return value;
}

IMLEvaluatorMetadata::MetadataMap ORTEvaluator::GetMetdata() {
  MetadataMap map;
  map.max_load_factor(1.0F);
  if (!mLoaded.load()) {
    return map;
  }
  try {
    const UniqueModelMetadata metadata = ReadModelMetadata(*mSession);
    OrtAllocator* allocator = DefaultAllocator();
    char** rawKeys = nullptr;
    int64_t keyCount = 0;
    ThrowIfFailed(
        Api().ModelMetadataGetCustomMetadataMapKeys(metadata.get(), allocator, &rawKeys, &keyCount));
    std::vector<AllocatedString> keys;
    keys.reserve(static_cast<size_t>(keyCount));
    for (int64_t i = 0; i < keyCount; ++i) {
      keys.emplace_back(allocator, rawKeys[i]);
    }
    const AllocatedString keyArray(allocator, reinterpret_cast<char*>(rawKeys));
    for (const AllocatedString& key : keys) {
      map.insert_or_assign(kivcore::string::ToU8(key.text),
                           LookupCustomMetadata(*metadata, allocator, key.text));
    }
  } catch (...) {
    kivcore::logging::LogException(std::current_exception(), "ORTEvaluator::GetMetdata", nullptr);
  }
  return map;
}

}  // namespace kivml::ort
