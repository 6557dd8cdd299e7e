#pragma once
// The untyped half of a future's shared state: completion status, stored exception, waiting and the list
// of continuations. FutureState<T> adds the value.
//
// Threads: any thread may read, wait and attach continuations at any time; exactly one thread completes
// (TryClaim decides which), and only that thread writes the result. Reads never block. Waiting blocks the
// caller until completion or its deadline; the mutex and condition variable it parks on are taken only
// when somebody waits, so completing an unwatched state costs a few atomic operations.
// Lifetime: held by shared_ptr (futures strongly, the promise weakly once the future is taken). The
// state holds its `upstream` strongly until it completes itself, so that dropping the end of a
// continuation chain releases the whole chain and its producer sees the abandonment.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <exception>
#include <memory>
#include <utility>

#include "kivcore/kivcore_export.h"

namespace kivcore::async {

class AsyncExecutor;
class ContinuationNode;

class KIVCORE_EXPORT FutureStateBase {
 public:
  FutureStateBase(const FutureStateBase&) = delete;
  FutureStateBase& operator=(const FutureStateBase&) = delete;

  bool IsReady() const noexcept { return Phase() >= kHasValue; }
  bool HasValue() const noexcept { return Phase() == kHasValue; }
  bool HasException() const noexcept { return Phase() == kHasException; }
  // Still waiting for a producer (no completion started).
  bool IsPending() const noexcept { return Phase() == kPending; }
  // Meaningful once HasException() has returned true.
  const std::exception_ptr& Exception() const noexcept { return mException; }

  void Wait() const;
  // True when the state completed before `deadline`.
  bool WaitUntil(std::chrono::steady_clock::time_point deadline) const;

  // The executor of continuations attached without one: the promise's, else the default executor.
  std::shared_ptr<AsyncExecutor> ContinuationExecutor() const;

  // Adds `node` (taking ownership), or schedules it at once on this thread when `state` has completed.
  static void AddContinuation(const std::shared_ptr<FutureStateBase>& state, ContinuationNode* node) noexcept;

  // Keeps `upstream` alive until this state completes. Only for the thread that feeds this state, before
  // it completes it.
  void SetUpstream(std::shared_ptr<FutureStateBase> upstream) noexcept { mUpstream = std::move(upstream); }

  // Producer side. Completes `state` with `exception`; false when it had completed (or begun to) already,
  // or when `exception` is null.
  static bool CompleteWithException(const std::shared_ptr<FutureStateBase>& state,
                                    std::exception_ptr exception) noexcept;

 protected:
  explicit FutureStateBase(std::shared_ptr<AsyncExecutor> continuationExecutor) noexcept;
  // Destroys the continuations that never ran (their chain has been abandoned).
  ~FutureStateBase();

  // The winner of TryClaim stores the result, then calls Publish exactly once.
  bool TryClaim() noexcept;
  void StoreException(std::exception_ptr exception) noexcept { mException = std::move(exception); }
  // Marks the claimed state complete, wakes the waiters and schedules the continuations.
  static void Publish(const std::shared_ptr<FutureStateBase>& state, bool hasException) noexcept;

 private:
  // Phase in the low two bits, kWaiters once somebody has parked.
  static constexpr uint32_t kPending = 0;
  static constexpr uint32_t kClaimed = 1;
  static constexpr uint32_t kHasValue = 2;
  static constexpr uint32_t kHasException = 3;
  static constexpr uint32_t kPhaseMask = 3;
  static constexpr uint32_t kWaiters = 4;

  uint32_t Phase() const noexcept { return mStatus.load(std::memory_order_acquire) & kPhaseMask; }
  // Registers a waiter; false when the state is complete already.
  bool PrepareToWait() const noexcept;

  mutable std::atomic<uint32_t> mStatus{kPending};
  std::atomic<ContinuationNode*> mContinuations{nullptr};  // newest first; kClosed once completed
  std::exception_ptr mException;
  std::shared_ptr<FutureStateBase> mUpstream;
  std::shared_ptr<AsyncExecutor> mContinuationExecutor;
};

}  // namespace kivcore::async
