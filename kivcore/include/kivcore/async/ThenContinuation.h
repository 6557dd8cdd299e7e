#pragma once
// The node behind Future<T>::Then: when the upstream completes, posts fn(upstreamFuture) on the executor
// and feeds the result into the resulting (downstream) promise; when fn returns a future, the downstream
// follows that future instead (flattening).
// Threads: Schedule runs on the completing thread, Run once on the executor's thread. fn, with whatever it
// captured, is destroyed on that thread before the downstream completes.
// Lifetime: owned by the upstream state while pending, then by the posted task. It holds the downstream
// promise, which holds the downstream state only weakly, so a chain whose last future was dropped is
// released; Schedule and Run skip fn when the downstream has been abandoned. Destroyed unrun with a live
// downstream (the executor refused or dropped the task), it fails the downstream with
// ExecutorIsTerminatedException.

#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "kivcore/async/AsyncExecutor.h"
#include "kivcore/async/ContinuationNode.h"
#include "kivcore/async/ExecutorIsTerminatedException.h"
#include "kivcore/async/Future.h"
#include "kivcore/async/FutureIsCancelledException.h"
#include "kivcore/async/FutureState.h"
#include "kivcore/async/InlineContinuation.h"
#include "kivcore/async/Promise.h"

namespace kivcore::async {

template <class T, class Fn>
class ThenContinuation final : public ContinuationNode {
 public:
  using Result = std::invoke_result_t<Fn&, Future<T>>;
  using Value = detail::Flattened<Result>;

  ThenContinuation(Fn fn, Promise<Value> promise, std::shared_ptr<AsyncExecutor> executor)
      : mFn(std::move(fn)), mPromise(std::move(promise)), mExecutor(std::move(executor)) {}

  ~ThenContinuation() override {
    // Skipped (no exception object made) when nobody holds the result.
    if (!HasRun() && !mPromise.IsAbandoned()) {
      try {
        mPromise.SetException(ExecutorIsTerminatedException());
      } catch (...) {
        mPromise.SetException(std::current_exception());
      }
    }
  }

  void Schedule(const std::shared_ptr<FutureStateBase>& completed) noexcept override {
    if (mPromise.IsAbandoned()) {
      Release();
      return;
    }
    mSource = std::static_pointer_cast<FutureState<T>>(completed);
    PostTo(*mExecutor);
  }

 private:
  void Run() override {
    Future<T> source(std::move(mSource));
    if (mPromise.IsAbandoned()) {
      mFn.reset();
      return;
    }
    try {
      if constexpr (detail::kIsFuture<std::remove_cvref_t<Result>>) {
        Follow(InvokeOnce(std::move(source)));
      } else if constexpr (std::is_void_v<Result>) {
        InvokeOnce(std::move(source));
        mPromise.SetValue();
      } else {
        mPromise.SetValue(InvokeOnce(std::move(source)));
      }
    } catch (...) {
      mPromise.SetException(std::current_exception());
    }
  }

  // Runs fn and destroys it, its captures with it, before the downstream completes: whoever waits for the
  // downstream may let go of everything and exit the process as soon as it completes, while this thread
  // would still be releasing what fn held (an object whose destructor needs what exit tears down).
  Result InvokeOnce(Future<T> source) {
    struct Release {
      std::optional<Fn>& fn;
      ~Release() { fn.reset(); }
    } release{mFn};
    return std::invoke(*mFn, std::move(source));
  }

  // Completes the downstream with whatever `inner` completes with.
  void Follow(const Future<Value>& inner) {
    if (!inner.IsValid()) {
      mPromise.SetException(FutureIsCancelledException());
      return;
    }
    const std::shared_ptr<FutureState<Value>> downstream = mPromise.LockState();
    if (downstream == nullptr) {
      return;
    }
    // The downstream now keeps the inner future alive instead of the upstream, so abandonment reaches the
    // inner producer too.
    downstream->SetUpstream(inner.mState);
    auto forward =
        [promise = std::move(mPromise)](const std::shared_ptr<FutureStateBase>& completed) mutable noexcept {
          auto& state = static_cast<FutureState<Value>&>(*completed);
          if (!state.HasValue()) {
            promise.SetException(state.Exception());
            return;
          }
          try {
            if constexpr (std::is_void_v<Value>) {
              promise.SetValue();
            } else if constexpr (std::is_copy_constructible_v<Value>) {
              promise.SetValue(state.Value());  // other holders of the inner future may still read it
            } else {
              promise.SetValue(std::move(state.Value()));  // move-only: the inner future's value is consumed
            }
          } catch (...) {
            promise.SetException(std::current_exception());
          }
        };
    FutureStateBase::AddContinuation(inner.mState,
                                     new InlineContinuation<decltype(forward)>(std::move(forward)));
  }

  std::optional<Fn> mFn;  // empty once run
  Promise<Value> mPromise;
  std::shared_ptr<AsyncExecutor> mExecutor;
  std::shared_ptr<FutureState<T>> mSource;  // the completed upstream, from Schedule to Run
};

}  // namespace kivcore::async
