#pragma once
// A backend for pipeline tests and benchmarks: echoes each request's inputs as its outputs, records what it
// was asked to predict, and lets a test delay, fail or observe every backend call through hooks.
// Requests are one int32 number (MakeRequest / ValueOf); dummy rows read as 0.

#include <cstring>
#include <functional>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include "LocalEvaluator.h"
#include "kivcore/allocator/RecycledMemory.h"
#include "kivcore/threads/ScopedLock.h"
#include "kivml/ITensorMLFeatureAccessor.h"
#include "kivml/utility/TensorFactories.h"

namespace kivml::testing {

inline utility::FeatureContainerVector MakeRequest(int32_t value) {
  auto memory = kivcore::allocator::RecycledMemory::Create(sizeof value);
  std::memcpy(memory->Buffer(), &value, sizeof value);
  utility::FeatureContainerVector request;
  request.push_back({kivcore::utility::ImmutableString::Create("x"),
                     utility::CreatePackedTensor(std::move(memory), sizeof value, ShapeType{1})});
  return request;
}

// The number a request (or its echoed outputs) carries; -1 when it carries none.
inline int32_t ValueOf(const utility::FeatureContainerVector& features) {
  if (features.empty()) {
    return -1;
  }
  const auto tensor = features.front().mFeature.Query<ITensorMLFeatureAccessor>();
  int32_t value = -1;
  if (tensor && tensor->GetData() != nullptr) {
    std::memcpy(&value, tensor->GetData(), sizeof value);
  }
  return value;
}

// Fixed before Start; the hooks run on the worker thread.
struct FakeBackendBehaviour {
  int loadResult = 0;
  bool mustFillBatch = true;
  bool canRunShortBatch = false;
  bool canPredictConcurrently = true;  // the records are locked; hooks must be thread-safe for lanes
  uint64_t freeVideoMemory = 0;
  bool record = true;  // benchmarks turn it off: the records grow with every request
  std::function<void(const utility::FeatureContainerVector&)> onPredict{};  // may throw
  std::function<int(const LocalEvaluator::BatchRows&)> onPredictBatched{};  // result code; may throw
  std::function<void()> onQueued{};  // runs on the producer after each queued request; may throw
};

class FakeEvaluator final : public LocalEvaluator {
 public:
  using Behaviour = FakeBackendBehaviour;

  explicit FakeEvaluator(Behaviour behaviour,
                         std::shared_ptr<const BatchFillClock> clock = GetSteadyBatchFillClock())
      : LocalEvaluator(std::move(clock)), mBehaviour(std::move(behaviour)) {}

  static std::shared_ptr<FakeEvaluator> Create(
      Behaviour behaviour = {}, std::shared_ptr<const BatchFillClock> clock = GetSteadyBatchFillClock()) {
    return kivcore::classref::CreateObject<FakeEvaluator>(std::move(behaviour), std::move(clock));
  }

  int CheckHealth() override { return 0; }
  kivcore::classref::InterfaceRef<IMLEvaluator> GetEvaluatorRef() override {
    return kivcore::classref::InterfaceRef<IMLEvaluator>(
        std::shared_ptr<IMLEvaluator>(GetSharedFromThis(), static_cast<IMLEvaluator*>(this)));
  }
  const char* GetEvaluatorTypeName() const override { return "Fake"; }
  int LoadModel() override {
    std::lock_guard lock(mRecordMutex);
    ++mLoadCount;
    return mBehaviour.loadResult;
  }
  bool MustFillBatch() const override { return mBehaviour.mustFillBatch; }
  bool CanRunShortBatch() const override { return mBehaviour.canRunShortBatch; }
  bool CanPredictConcurrently() const override { return mBehaviour.canPredictConcurrently; }

  void MarkQueueHasPendingFeatures() override {
    if (mBehaviour.onQueued) {
      mBehaviour.onQueued();
    }
    LocalEvaluator::MarkQueueHasPendingFeatures();
  }

  utility::FeatureContainerVector Predict(const utility::FeatureContainerVector& inputs) override {
    if (mBehaviour.record) {
      std::lock_guard lock(mRecordMutex);
      mSingles.push_back(ValueOf(inputs));
    }
    if (mBehaviour.onPredict) {
      mBehaviour.onPredict(inputs);
    }
    return inputs;
  }

  int PredictBatched(const BatchRows& batch, BatchOutputs& outputs) override {
    if (mBehaviour.record) {
      std::vector<int32_t> values;
      for (const auto& row : batch) {
        values.push_back(ValueOf(row));
      }
      std::lock_guard lock(mRecordMutex);
      mBatches.push_back(std::move(values));
    }
    const int result = mBehaviour.onPredictBatched ? mBehaviour.onPredictBatched(batch) : 0;
    outputs.assign(batch.begin(), batch.end());
    return result;
  }

  // Batch sizes below 8 cannot come from SetModel; tests of batch handling want small ones.
  void ForceBatchSize(size_t batchSize) {
    kivcore::threads::ScopedLock lock(GetMutex(), "FakeEvaluator::ForceBatchSize");
    SetBatchSizeLocked(batchSize);
  }

  bool IsGateOpen() const { return GetGate().IsOpen(); }

  int LoadCount() const {
    std::lock_guard lock(mRecordMutex);
    return mLoadCount;
  }
  std::vector<int32_t> Singles() const {
    std::lock_guard lock(mRecordMutex);
    return mSingles;
  }
  std::vector<std::vector<int32_t>> Batches() const {
    std::lock_guard lock(mRecordMutex);
    return mBatches;
  }

 protected:
  uint64_t QueryAvailableVideoMemory() const override { return mBehaviour.freeVideoMemory; }

 private:
  const Behaviour mBehaviour;
  mutable std::mutex mRecordMutex;
  int mLoadCount = 0;
  std::vector<int32_t> mSingles;
  std::vector<std::vector<int32_t>> mBatches;
};

}  // namespace kivml::testing
