#pragma once
// The queue side shared by every evaluator. Callers on any thread queue requests and get one future each;
// the worker of the concrete evaluator takes the queued requests out in bulk. Producers may register
// throttle functions, told kPause while the queue is longer than its threshold and kResume otherwise.
//
// Locking: one recursive mutex guards the model, queue, gate, throttle list and batching settings. Every
// acquisition is named after the operation and bounded (60 s). No caller-supplied code runs under it:
// throttle functions run on a serial executor, MarkQueueHasPendingFeatures is called after unlocking and
// the futures of dropped requests are failed after unlocking. The members say which lock guards them, for
// clang's thread-safety analysis (scripts/check_thread_safety.sh).
//
// Every request is answered exactly once: by the worker, or with eModelExecutionTerminated when the queue
// is cleared or the evaluator is destroyed with the request still queued.
//
// Statistics: each request is stamped with the evaluator's clock as it is queued and counted under the lock
// that queueing takes anyway. What becomes of it is recorded by the lane that runs it (the concrete
// evaluator's business) or, when it never reaches one, in the queue's own recorder; a snapshot adds them up.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

#include "BatchFillClock.h"
#include "ExitBarrier.h"
#include "QueuedFeatureRequest.h"
#include "RequestRecorder.h"
#include "RequestRecords.h"
#include "kivcore/async/AsyncExecutor.h"
#include "kivcore/classref/Implements.h"
#include "kivcore/threads/Gate.h"
#include "kivcore/threads/RecursiveMutex.h"
#include "kivcore/threads/ThreadSafetyAnnotations.h"
#include "kivml/EvaluatorStatistics.h"
#include "kivml/IMLEvaluator.h"
#include "kivml/IMLEvaluatorPrivate.h"

namespace kivml {

class BaseMLEvaluator : public kivcore::classref::Implements<IMLEvaluator, IMLEvaluatorPrivate> {
 public:
  using RequestQueue = FeatureRequestQueue;

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
  virtual void MarkQueueHasPendingFeatures() KIV_EXCLUDES(mMutex) = 0;
  virtual bool HasQueuedItems() const;

  kivcore::classref::InterfaceRef<IMLModel> GetModel() const;
  size_t GetBatchSize() const noexcept { return mBatchSize.load(std::memory_order_acquire); }
  bool GetShouldUseBatching() const;
  size_t GetThrottleThreshold() const;

  // What the evaluator has done since it was made or last reset; \see kivml/EvaluatorStatistics.h.
  EvaluatorStatistics GetStatistics() const;
  // Starts a new statistics window now.
  void ResetStatistics();

 protected:
  explicit BaseMLEvaluator(std::shared_ptr<const BatchFillClock> clock = GetSteadyBatchFillClock());

  // Fails the futures of `requests`, in order, skipping abandoned ones; then destroys the requests. Records
  // them as terminated (or abandoned) in the queue's recorder.
  // Never under the lock: completing a future may run the caller's continuations.
  void ErrorOutQueue(RequestQueue& requests) noexcept KIV_EXCLUDES(mMutex);

  // The evaluator's time source: request stamps, statistics and the batch fill loop's waits.
  const BatchFillClock& GetClock() const noexcept { return *mClock; }
  // Records what happens to requests outside any lane.
  RequestRecorder& GetQueueRecorder() noexcept { return mQueueRecorder; }
  // The worker's part of a snapshot: adds the records of each lane in use into `total` and describes the
  // lanes over a window of `span`. Nothing unless overridden.
  virtual void AddWorkerStatistics(RequestRecords& total, std::chrono::nanoseconds span,
                                   std::vector<EvaluatorStatistics::Lane>& lanes) const;
  // Clears what AddWorkerStatistics reports. Nothing unless overridden.
  virtual void ClearWorkerStatistics();

  // Call with the lock held.
  void BindModelLocked(kivcore::classref::InterfaceRef<IMLModel> model) KIV_REQUIRES(mMutex) {
    mModel = std::move(model);
  }
  // Under the lock so that the throttle threshold changes together with what it is computed from.
  void SetBatchSizeLocked(size_t batchSize) noexcept KIV_REQUIRES(mMutex) {
    mBatchSize.store(batchSize, std::memory_order_release);
  }
  void SetShouldUseBatchingLocked(bool shouldUseBatching) noexcept KIV_REQUIRES(mMutex) {
    mShouldUseBatching = shouldUseBatching;
  }

  // Derived classes guard their own members with this lock: KIV_GUARDED_BY(GetMutex()).
  const kivcore::threads::RecursiveMutex& GetMutex() const noexcept KIV_RETURN_CAPABILITY(mMutex) {
    return mMutex;
  }
  // Open while the queue holds requests that the worker has not taken; the worker waits on it.
  const kivcore::threads::Gate& GetGate() const noexcept { return mGate; }

 private:
  using ThrottleList = std::vector<std::weak_ptr<ThrottleFunction>,
                                   kivcore::allocator::STLAllocator<std::weak_ptr<ThrottleFunction>>>;

  size_t ThrottleThresholdLocked() const noexcept KIV_REQUIRES(mMutex);
  // Call with the lock held: prunes expired throttles and posts one notification for `queueLength`.
  void PostThrottleNotificationLocked(size_t queueLength) KIV_REQUIRES(mMutex);

  const std::shared_ptr<const BatchFillClock> mClock;  // immutable; the clock itself is thread-safe
  kivcore::classref::InterfaceRef<IMLModel> mModel KIV_GUARDED_BY(mMutex);
  kivcore::threads::RecursiveMutex mMutex;
  RequestQueue mQueue KIV_GUARDED_BY(mMutex);
  // Thread-safe itself, and read without the lock (the worker watches it); opened and closed only under the
  // lock, so that it agrees with the queue.
  kivcore::threads::Gate mGate;
  ExitBarrier::GateWatch mGateWatch{mGate};  // immutable; a worker waiting for latecomers stops at exit
  ThrottleList mThrottles KIV_GUARDED_BY(mMutex);
  bool mShouldUseBatching KIV_GUARDED_BY(mMutex) = false;
  std::atomic<size_t> mBatchSize{1};            // atomic: read without the lock; written under it
  uint64_t mQueued KIV_GUARDED_BY(mMutex) = 0;  // in this window
  BatchFillClock::TimePoint mWindowStart KIV_GUARDED_BY(mMutex);
  RequestRecorder mQueueRecorder;                                          // has a lock of its own
  const std::shared_ptr<kivcore::async::AsyncExecutor> mThrottleExecutor;  // immutable; serial
};

}  // namespace kivml
