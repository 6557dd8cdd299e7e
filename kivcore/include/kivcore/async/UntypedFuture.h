#pragma once
// A type-erased view of any Future<T>: shares its state, so it keeps the state alive like a future copy
// (the producer does not see the future abandoned while an UntypedFuture of it lives).
// Threads: every method may be called from any thread. Reads never block; Wait blocks until the producer
// completes, WaitUntil at most until its deadline. OnComplete callbacks run on the executor given, never
// inline; a pending callback keeps the state alive until the state completes.
// An UntypedFuture without a state (IsValid() false) reads as not ready and without exception; waiting on it
// or attaching to it throws FutureIsCancelledException.

#include <chrono>
#include <exception>
#include <functional>
#include <memory>

#include "kivcore/kivcore_export.h"

namespace kivcore::async {

class AsyncExecutor;
class FutureStateBase;

class KIVCORE_EXPORT UntypedFuture {
 public:
  UntypedFuture() noexcept;
  explicit UntypedFuture(std::shared_ptr<FutureStateBase> state) noexcept;
  UntypedFuture(const UntypedFuture& other) noexcept;
  UntypedFuture(UntypedFuture&& other) noexcept;
  UntypedFuture& operator=(const UntypedFuture& other) noexcept;
  UntypedFuture& operator=(UntypedFuture&& other) noexcept;
  ~UntypedFuture();

  bool IsValid() const noexcept { return mState != nullptr; }
  bool IsReady() const noexcept;
  bool HasException() const noexcept;
  // The stored exception; null while pending, after a value, or without a state.
  std::exception_ptr GetException() const noexcept;

  void Wait() const;
  // True when the future completed before `deadline`.
  bool WaitUntil(std::chrono::steady_clock::time_point deadline) const;

  // Posts `callback` on `executor` (null: the producer's continuation executor) once the future has
  // completed, at once when it has already. It runs exactly once unless the executor refuses it or is shut
  // down before running it; that is logged.
  void OnComplete(std::shared_ptr<AsyncExecutor> executor, std::function<void()> callback) const;

  // The shared state, for the runtime's own combinators.
  const std::shared_ptr<FutureStateBase>& State() const noexcept { return mState; }

 private:
  std::shared_ptr<FutureStateBase> mState;
};

// Waits for `future` until `deadline` (steady clock, nanosecond resolution). Returns true when the future
// became ready before the deadline; false on time-out, and at once for a future without a state. When
// `logTimeout` is true, a false result is also reported through logging::LogMessage.
KIVCORE_EXPORT bool WaitForUntypedUntil(const UntypedFuture& future,
                                        const std::chrono::steady_clock::time_point& deadline,
                                        bool logTimeout);

}  // namespace kivcore::async
