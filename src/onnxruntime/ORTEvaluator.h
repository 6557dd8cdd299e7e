#pragma once
// The evaluator that runs ONNX models through ONNX Runtime. LocalEvaluator owns the queue and the worker;
// this class loads the model into a session (on the GPU when the model asks and the GPU can be set up,
// otherwise on the CPU), converts requests to ONNX Runtime values and back, and reads the model's
// custom metadata. Everything but the metadata queries runs on the evaluator's workers; with several
// prediction lanes Predict and PredictBatched run side by side, reading only what LoadModel set.

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "LocalEvaluator.h"
#include "kivcore/allocator/RecycledMemory.h"
#include "kivcore/classref/Implements.h"
#include "kivml/IMLEvaluatorMetadata.h"
#include "kivml/ITensorMLFeatureAccessor.h"
#include "onnxruntime/ExecutionProvider.h"
#include "onnxruntime/ORTApi.h"
#include "onnxruntime/ORTTensorDescription.h"
#include "onnxruntime/SessionSettings.h"

namespace kivml::ort {

// Lets maps keyed by std::string be searched with any string view.
struct StringViewHash {
  using is_transparent = void;
  size_t operator()(std::string_view text) const noexcept { return std::hash<std::string_view>()(text); }
};

class ORTEvaluator final : public kivcore::classref::ImplementsMore<LocalEvaluator, IMLEvaluatorMetadata> {
 public:
  using DescriptionMap = std::unordered_map<std::string, std::shared_ptr<const ORTTensorDescription>,
                                            StringViewHash, std::equal_to<>>;
  // The session's output names, in its output order.
  struct OutputNames {
    std::vector<std::string> names;
    std::vector<const char*> pointers;  // into `names`, as Run takes them
    std::vector<kivcore::utility::ImmutableString> immutables;
  };

  ORTEvaluator();
  ~ORTEvaluator() override;
  ORTEvaluator(const ORTEvaluator&) = delete;
  ORTEvaluator& operator=(const ORTEvaluator&) = delete;

  // The class factory's creator.
  static void Create(kivcore::classref::InterfaceRef<kivcore::classref::UnknownBase>& instance);

  // \see IMLEvaluator. Healthy once the model has loaded.
  int CheckHealth() override;

  // \see LocalEvaluator
  const char* GetEvaluatorTypeName() const override { return "ORT"; }
  int LoadModel() override;
  // Full batches only where the session cannot run a short one: see CanRunShortBatch.
  bool MustFillBatch() const override { return !mRunsShortBatches; }
  // Sessions whose provider lets shapes change and whose inputs keep a free first dimension (an input
  // denoted "DATA_BATCH" is fixed to the batch size by the session itself).
  bool CanRunShortBatch() const override { return mRunsShortBatches; }
  // As the session's provider allows: ONNX Runtime's CPU provider does; GPU providers are kept to one
  // prediction at a time.
  bool CanPredictConcurrently() const override { return mLoaded.load() && mProvider->AllowsConcurrentRun(); }
  utility::FeatureContainerVector Predict(const utility::FeatureContainerVector& inputs) override;
  int PredictBatched(const BatchRows& batch, BatchOutputs& outputs) override;
  void CheckBatchRow(const utility::FeatureContainerVector& row,
                     const utility::FeatureContainerVector* firstRow) override;

  // One inference over all rows together; one output vector per row. Empty vectors for every row when
  // the run returns a different number of outputs than the model declares.
  BatchOutputs PredictBatch(const BatchRows& batch);
  const OutputNames& GetOutputNames() const noexcept { return mOutputNames; }

  // \see IMLEvaluatorMetadata
  MetadataMap GetMetdata() override;
  kivcore::u8string LookupMetadata(const kivcore::u8string& key) override;

  const DescriptionMap& GetInputDescriptions() const noexcept { return mInputDescriptions; }
  bool IsProfilingEnabled() const noexcept { return mProfilingEnabled; }
  // The value given to the "DATA_BATCH" dimension override.
  int64_t GetSessionBatchSize() const noexcept { return mBatchSize.value_or(1); }
  // What the loaded session's options were given, its execution provider included.
  const SessionSettings& GetSessionSettings() const noexcept { return mSessionSettings; }

 protected:
  kivcore::classref::InterfaceRef<IMLEvaluator> GetEvaluatorRef() override;

 private:
  // One input of a request, checked against the model.
  struct FittedInput {
    const char* name;
    const ITensorMLFeatureAccessor* tensor;
    DescriptionShapeType shape;
    ONNXTensorElementDataType type;
  };
  using FittedInputs = std::vector<FittedInput>;

  // A session on `gpu`, with the options made with the evaluator; false, after logging why, when the
  // provider cannot serve here.
  bool TryGPUSession(const ExecutionProvider& gpu, const kivcore::allocator::RecycledMemory& payload,
                     const kivcore::utility::ImmutableString& modelName);
  // A session on the CPU, with fresh options. `afterGPUAttempt`: the session is not profiled.
  void CreateCPUSession(const kivcore::allocator::RecycledMemory& payload,
                        const kivcore::utility::ImmutableString& modelName, bool afterGPUAttempt);
  void EnableProfiling(const kivcore::utility::ImmutableString& modelName);
  void CreateSession(const kivcore::allocator::RecycledMemory& payload);
  void DescribeModel();
  // The tensor inputs of `row` fitted to the model (for a batch item, each input's first dimension is
  // the item's own, 1). `holders` keeps the tensors' interfaces alive while the fitted inputs are used.
  FittedInputs FitRow(const utility::FeatureContainerVector& row, bool asBatchItem,
                      std::vector<kivcore::classref::InterfaceRef<ITensorMLFeatureAccessor>>& holders) const;
  std::vector<UniqueValue> Run(const std::vector<const char*>& names, const std::vector<UniqueValue>& values);

  // Published by mLoaded: LoadModel, on the worker, sets every member below before it sets mLoaded, and
  // nothing changes them afterwards until destruction. Other threads (the other lanes, metadata calls,
  // CheckHealth) read them only once they have seen mLoaded, so they need no lock.
  std::atomic<bool> mLoaded{false};
  UniqueSessionOptions mSessionOptions;
  UniqueSession mSession;
  bool mProfilingEnabled = false;
  bool mRunsShortBatches = false;
  const ExecutionProvider* mProvider = nullptr;  // the session's
  SessionSettings mSessionSettings;
  bool mOneItemPerRequest = false;  // the model batches, so a request is one item
  std::optional<int64_t> mBatchSize;
  DescriptionMap mInputDescriptions;
  DescriptionMap mOutputDescriptions;
  std::vector<std::string> mRequiredInputs;  // the model's inputs; overridable initializers are optional
  OutputNames mOutputNames;
};

}  // namespace kivml::ort
