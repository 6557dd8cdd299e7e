#pragma once
// The consuming end of a promise: a copyable handle on the shared state.
//
// Threads: every const method may be called from any thread on any copy. Reads (Get, HasValue...) never
// block; Wait blocks until the producer completes, WaitFor/WaitUntil at most until their deadline. Take
// moves the value out and is for a single consumer.
//
// Continuations: Then(fn) posts fn(completedFuture) on the promise's continuation executor, Then(executor,
// fn) on `executor`, once the future completes (at once when it has). fn returns R; Then returns Future<R>,
// or Future<U> when R is Future<U> (the result follows the returned future). An exception thrown by fn
// fails the resulting future; so does ExecutorIsTerminatedException when the executor refuses or drops
// the continuation. The resulting future's own continuation executor is the one fn ran on.
//
// Lifetime: futures hold the state strongly. A continuation lives as long as somebody holds its resulting
// future (or something attached to it): the resulting state keeps the upstream state alive until it
// completes, while the upstream only holds the continuation, which holds the resulting promise weakly.
// So dropping the end of a chain releases the whole chain, the producer sees IsAbandoned(), and
// continuations whose result nobody holds are not run. To run something regardless, keep the resulting
// future or use UntypedFuture::OnComplete.
//
// A future without a state (default-constructed, or taken from an abandoned promise): Get/Take throw
// FutureIsCancelledException, so do Wait/WaitFor/WaitUntil; Then returns a future failed with it.

#include <chrono>
#include <exception>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

#include "kivcore/async/AsyncExecutor.h"
#include "kivcore/async/FutureIsCancelledException.h"
#include "kivcore/async/FutureNotReadyException.h"
#include "kivcore/async/FutureState.h"
#include "kivcore/async/UntypedFuture.h"

namespace kivcore::async {

template <class T>
class Future;
template <class T>
class Promise;
template <class T, class Fn>
class ThenContinuation;
template <class T>
Future<T> MakeExceptionalFuture(std::exception_ptr exception);

namespace detail {

template <class R>
inline constexpr bool kIsFuture = false;
template <class U>
inline constexpr bool kIsFuture<Future<U>> = true;

template <class R>
auto FlattenedTag() {
  using Plain = std::remove_cvref_t<R>;
  if constexpr (kIsFuture<Plain>) {
    return std::type_identity<typename Plain::ValueType>();
  } else {
    return std::type_identity<Plain>();
  }
}

// The value type of the future that Then returns for a continuation returning R.
template <class R>
using Flattened = typename decltype(FlattenedTag<R>())::type;

// A callable that Then accepts on a Future<T>: it is called with the completed future.
template <class Fn, class T>
inline constexpr bool kIsContinuationOf = std::is_invocable_v<std::decay_t<Fn>&, Future<T>>;
template <class Fn, class T>
concept ContinuationOf = kIsContinuationOf<Fn, T>;

template <class T, class Fn>
using ThenResult = Flattened<std::invoke_result_t<std::decay_t<Fn>&, Future<T>>>;

}  // namespace detail

template <class T>
class Future {
 public:
  using ValueType = T;
  using Storage = typename FutureState<T>::Storage;
  using GetResult = std::conditional_t<std::is_void_v<T>, void, const Storage&>;

  Future() noexcept = default;

  bool IsValid() const noexcept { return mState != nullptr; }
  bool IsReady() const noexcept { return mState != nullptr && mState->IsReady(); }
  bool HasValue() const noexcept { return mState != nullptr && mState->HasValue(); }
  bool HasException() const noexcept { return mState != nullptr && mState->HasException(); }

  // The value, without blocking: throws FutureNotReadyException before completion, rethrows the stored
  // exception, FutureIsCancelledException without a state. The reference lives as long as the state.
  GetResult Get() const {
    ThrowUnlessValue();
    if constexpr (!std::is_void_v<T>) {
      return mState->Value();
    }
  }

  // Like Get, but moves the value out of the shared state: other readers then see a moved-from value.
  T Take() {
    ThrowUnlessValue();
    if constexpr (!std::is_void_v<T>) {
      return std::move(mState->Value());
    }
  }

  // The stored exception; null while pending, after a value, or without a state.
  std::exception_ptr GetException() const noexcept {
    return HasException() ? mState->Exception() : std::exception_ptr();
  }

  void Wait() const { RequireState().Wait(); }
  template <class Rep, class Period>
  bool WaitFor(const std::chrono::duration<Rep, Period>& timeout) const {
    return WaitUntil(DeadlineAfter(timeout));
  }
  // True when the future completed before `deadline`.
  bool WaitUntil(std::chrono::steady_clock::time_point deadline) const {
    return RequireState().WaitUntil(deadline);
  }

  // [[nodiscard]]: a continuation whose resulting future is dropped does not run (see Lifetime above).
  template <detail::ContinuationOf<T> Fn>
  [[nodiscard]] Future<detail::ThenResult<T, Fn>> Then(Fn&& fn) const {
    return Then(nullptr, std::forward<Fn>(fn));
  }

  // A null `executor` means the promise's continuation executor.
  template <detail::ContinuationOf<T> Fn>
  [[nodiscard]] Future<detail::ThenResult<T, Fn>> Then(std::shared_ptr<AsyncExecutor> executor,
                                                       Fn&& fn) const {
    using U = detail::ThenResult<T, Fn>;
    using Node = ThenContinuation<T, std::decay_t<Fn>>;
    if (mState == nullptr) {
      return MakeExceptionalFuture<U>(std::make_exception_ptr(FutureIsCancelledException()));
    }
    if (executor == nullptr) {
      executor = mState->ContinuationExecutor();
    }
    Promise<U> promise(executor);
    Future<U> result = promise.GetFuture();
    result.mState->SetUpstream(mState);
    FutureStateBase::AddContinuation(mState,
                                     new Node(std::forward<Fn>(fn), std::move(promise), std::move(executor)));
    return result;
  }

  operator UntypedFuture() const noexcept {
    return UntypedFuture(mState);
  }  // NOLINT: a view, not a conversion

 private:
  template <class>
  friend class Future;
  template <class>
  friend class Promise;
  template <class, class>
  friend class ThenContinuation;

  explicit Future(std::shared_ptr<FutureState<T>> state) noexcept : mState(std::move(state)) {}

  const FutureState<T>& RequireState() const {
    if (mState == nullptr) {
      throw FutureIsCancelledException();
    }
    return *mState;
  }

  void ThrowUnlessValue() const {
    if (RequireState().HasValue()) {
      return;
    }
    if (mState->HasException()) {
      std::rethrow_exception(mState->Exception());
    }
    throw FutureNotReadyException();
  }

  // now + timeout, without overflowing for huge timeouts.
  template <class Rep, class Period>
  static std::chrono::steady_clock::time_point DeadlineAfter(
      const std::chrono::duration<Rep, Period>& timeout) {
    constexpr std::chrono::hours kForever(24 * 365 * 100);
    const auto now = std::chrono::steady_clock::now();
    if (timeout <= timeout.zero()) {
      return now;
    }
    if (timeout >= kForever) {
      return now + kForever;
    }
    return now + std::chrono::ceil<std::chrono::steady_clock::duration>(timeout);
  }

  std::shared_ptr<FutureState<T>> mState;
};

}  // namespace kivcore::async

// Then and the helpers need Promise and the continuation node, which themselves use Future.
#include "kivcore/async/Promise.h"
#include "kivcore/async/ThenContinuation.h"
