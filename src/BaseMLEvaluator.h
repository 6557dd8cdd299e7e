#pragma once
// The queue side shared by every evaluator. Callers on any thread queue requests and get one future each;
// the worker of the concrete evaluator takes the queued requests out in bulk. Producers may register
// throttle functions, told kPause while the queue is longer than its threshold and kResume otherwise.
//
// Locking: one recursive mutex guards the model, queue, gate, throttle list and batching settings. Every
// acquisition is named after the operation and bounded (60 s). No caller-supplied code runs under it:
// throttle functions run on a serial executor, MarkQueueHasPendingFeatures is called after unlocking and
// the futures of dropped requests are failed after unlocking.
//
// Every request is answered exactly once: by the worker, or with eModelExecutionTerminated when the queue
// is cleared or the evaluator is destroyed with the request still queued.

#include <atomic>
#include <memory>
#include <vector>

#include "kivcore/async/AsyncExecutor.h"
#include "kivcore/classref/Implements.h"
#include "kivcore/threads/Gate.h"
#include "kivcore/threads/RecursiveMutex.h"
#include "kivml/IMLEvaluator.h"
#include "kivml/IMLEvaluatorPrivate.h"
#include "utility/ExitBarrier.h"
#include "utility/QueuedFeatureRequest.h"

namespace kivml {

class BaseMLEvaluator : public kivcore::classref::Implements<IMLEvaluator, IMLEvaluatorPrivate> {
 public:
  using RequestQueue = utility::FeatureRequestQueue;

  // The queue length past which producers are told kPause when batching is off.
  static constexpr size_t kUnbatchedThrottleThreshold = 512;
  // With batching on, the threshold is this many full batches.
  static constexpr size_t kBatchesBeforeThrottle = 8;

  ~BaseMLEvaluator() override;

  // \see IMLEvaluator. Never throws: a failure to queue is stored in the returned future.
  [[nodiscard]] kivcore::async::Future<utility::FeatureContainerVector> QueueFeatures(
      utility::FeatureContainerVector&& inputs) override;
  void RegisterThrottleFxn(std::weak_ptr<ThrottleFunction> throttle) override;

  // \see IMLEvaluatorPrivate. Stores the model; returns 0.
  int SetModel(kivcore::classref::InterfaceRef<IMLModel> model) override;

  // The backend's reference to itself as an evaluator.
  virtual kivcore::classref::InterfaceRef<IMLEvaluator> GetEvaluatorRef() = 0;
  // Takes every queued request, in arrival order, and closes the gate if there were any.
  virtual RequestQueue PopQueuedFeatureRequests();
  // Takes the first `most` queued requests, in arrival order; `left` is how many stay queued. Closes the
  // gate when none stay.
  RequestQueue PopQueuedFeatureRequests(size_t most, size_t& left);
  // Drops every queued request, failing its future with eModelExecutionTerminated.
  virtual void ClearQueuedFeatures();
  // Called by QueueFeatures, without the lock, after each request has been queued.
  virtual void MarkQueueHasPendingFeatures() = 0;
  virtual bool HasQueuedItems() const;

  kivcore::classref::InterfaceRef<IMLModel> GetModel() const;
  size_t GetBatchSize() const noexcept { return mBatchSize.load(std::memory_order_acquire); }
  bool GetShouldUseBatching() const;
  size_t GetThrottleThreshold() const;

 protected:
  BaseMLEvaluator();

  // Fails the futures of `requests`, in order, skipping abandoned ones; then destroys the requests.
  static void ErrorOutQueue(RequestQueue& requests) noexcept;

  // Call with the lock held.
  void BindModelLocked(kivcore::classref::InterfaceRef<IMLModel> model) { mModel = std::move(model); }
  void SetBatchSizeLocked(size_t batchSize) noexcept {
    mBatchSize.store(batchSize, std::memory_order_release);
  }
  void SetShouldUseBatchingLocked(bool shouldUseBatching) noexcept { mShouldUseBatching = shouldUseBatching; }

  const kivcore::threads::RecursiveMutex& GetMutex() const noexcept { return mMutex; }
  // Open while the queue holds requests that the worker has not taken; the worker waits on it.
  const kivcore::threads::Gate& GetGate() const noexcept { return mGate; }

 private:
  using ThrottleList = std::vector<std::weak_ptr<ThrottleFunction>,
                                   kivcore::allocator::STLAllocator<std::weak_ptr<ThrottleFunction>>>;

  size_t ThrottleThresholdLocked() const noexcept;
  // Call with the lock held: prunes expired throttles and posts one notification for `queueLength`.
  void PostThrottleNotificationLocked(size_t queueLength);

  kivcore::classref::InterfaceRef<IMLModel> mModel;
  kivcore::threads::RecursiveMutex mMutex;
  RequestQueue mQueue;
  kivcore::threads::Gate mGate;
  utility::ExitBarrier::GateWatch mGateWatch{mGate};  // a worker waiting for latecomers stops at exit
  ThrottleList mThrottles;
  bool mShouldUseBatching = false;
  std::atomic<size_t> mBatchSize{1};
  const std::shared_ptr<kivcore::async::AsyncExecutor> mThrottleExecutor;  // serial
};

}  // namespace kivml
