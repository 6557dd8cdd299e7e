#pragma once
// The producing end of a future. One promise completes one shared state, once, with a value or an
// exception; futures taken from it (GetFuture) read the result, wait for it or attach continuations.
//
// Threads: SetValue, SetException and IsAbandoned may be called from several threads at once (the first
// completion wins, the others return false); GetFuture, moving and destroying need exclusive access.
// Nothing here blocks. Completing posts the attached continuations to their executors; it never runs them.
//
// Lifetime: the promise holds the state strongly until the future is first taken, weakly afterwards. When
// every consumer has let go (no future copy alive and no pending continuation that keeps the state),
// IsAbandoned() becomes true and completing is a cheap no-op: a producer can skip the work. Destroying a
// promise that never completed fails its future with BrokenPromiseException.
//
// Constructed with `continuationExecutor`, the executor of continuations attached without one; a null
// executor means the default executor, looked up when such a continuation is attached. Note that with the
// default argument, `Promise<T> promise;` is a live promise; an empty one (every operation a no-op
// returning false, IsAbandoned() true) is what a move leaves behind.

#include <exception>
#include <memory>
#include <type_traits>
#include <utility>

#include "kivcore/async/AsyncExecutor.h"
#include "kivcore/async/BrokenPromiseException.h"
#include "kivcore/async/Future.h"
#include "kivcore/async/FutureState.h"

namespace kivcore::async {

template <class T>
class Promise {
 public:
  using Storage = typename FutureState<T>::Storage;

  explicit Promise(std::shared_ptr<AsyncExecutor> continuationExecutor = GetDefaultExecutor())
      : mStrong(FutureState<T>::Create(std::move(continuationExecutor))) {}

  Promise(Promise&& other) noexcept = default;
  Promise& operator=(Promise&& other) noexcept {
    if (this != &other) {
      Break();
      mStrong = std::move(other.mStrong);
      mWeak = std::move(other.mWeak);
    }
    return *this;
  }
  Promise(const Promise&) = delete;
  Promise& operator=(const Promise&) = delete;
  ~Promise() { Break(); }

  // A future on the state. Every call returns a copy of the same future; once all of them have been
  // dropped (the promise is abandoned), it returns a future without a state.
  Future<T> GetFuture() {
    if (mStrong != nullptr) {
      mWeak = mStrong;
      return Future<T>(std::move(mStrong));
    }
    return Future<T>(mWeak.lock());
  }

  // True when this call completed the future; false when it was complete already, nobody can read it any
  // more (abandoned), or the promise is empty.
  bool SetValue(Storage value) requires(!std::is_void_v<T>) {
    const std::shared_ptr<FutureState<T>> state = LockState();
    return state != nullptr && FutureState<T>::CompleteWithValue(state, std::move(value));
  }
  bool SetValue() requires std::is_void_v<T> {
    const std::shared_ptr<FutureState<T>> state = LockState();
    return state != nullptr && FutureState<T>::CompleteWithValue(state);
  }

  // As SetValue; a null `exception` is refused (it could not be rethrown).
  bool SetException(std::exception_ptr exception) noexcept {
    const std::shared_ptr<FutureState<T>> state = LockState();
    return state != nullptr && FutureStateBase::CompleteWithException(state, std::move(exception));
  }
  // The exception object is only made when somebody can still read it. (An exception_ptr argument picks
  // the overload above.)
  template <class E>
  bool SetException(const E& exception) {
    const std::shared_ptr<FutureState<T>> state = LockState();
    return state != nullptr && state->IsPending() &&
           FutureStateBase::CompleteWithException(state, std::make_exception_ptr(exception));
  }

  // True once the future has been taken and every consumer has let it go (see above); true for an empty
  // promise.
  bool IsAbandoned() const noexcept { return mStrong == nullptr && mWeak.expired(); }

 private:
  template <class, class>
  friend class ThenContinuation;

  std::shared_ptr<FutureState<T>> LockState() const noexcept {
    return mStrong != nullptr ? mStrong : mWeak.lock();
  }

  // Fails a future that somebody may still read and that was never completed.
  void Break() noexcept {
    if (mStrong != nullptr) {
      mStrong.reset();  // the future was never taken: nobody can tell
      return;
    }
    if (const std::shared_ptr<FutureState<T>> state = mWeak.lock(); state != nullptr && state->IsPending()) {
      try {
        FutureStateBase::CompleteWithException(state, std::make_exception_ptr(BrokenPromiseException()));
      } catch (...) {
        FutureStateBase::CompleteWithException(state, std::current_exception());
      }
    }
    mWeak.reset();
  }

  std::shared_ptr<FutureState<T>> mStrong;  // until the future is first taken
  std::weak_ptr<FutureState<T>> mWeak;      // afterwards
};

// A future that already holds `value`. Its continuations run on the default executor unless given one.
template <class T>
Future<std::decay_t<T>> MakeReadyFuture(T&& value) {
  Promise<std::decay_t<T>> promise(nullptr);
  Future<std::decay_t<T>> future = promise.GetFuture();
  promise.SetValue(std::forward<T>(value));
  return future;
}

inline Future<void> MakeReadyFuture() {
  Promise<void> promise(nullptr);
  Future<void> future = promise.GetFuture();
  promise.SetValue();
  return future;
}

// A future that already failed with `exception`.
template <class T>
Future<T> MakeExceptionalFuture(std::exception_ptr exception) {
  Promise<T> promise(nullptr);
  Future<T> future = promise.GetFuture();
  promise.SetException(std::move(exception));
  return future;
}

}  // namespace kivcore::async
