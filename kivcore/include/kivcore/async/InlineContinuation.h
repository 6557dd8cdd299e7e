#pragma once
// A continuation for the runtime's own bookkeeping (forwarding a flattened result, counting the members of
// a CompoundFuture): runs `fn(completedState)` on the thread that completes the state, or on the attaching
// thread when the state had completed already, never under a lock. `fn` must not throw and must stay
// short: it delays the completing thread. User code never runs here; user continuations are posted.
// Lifetime: the node (and `fn` with its captures) is destroyed right after the call, or unrun with the
// state it waits on.

#include <memory>
#include <type_traits>
#include <utility>

#include "kivcore/async/ContinuationNode.h"

namespace kivcore::async {

template <class Fn>
class InlineContinuation final : public ContinuationNode {
 public:
  static_assert(std::is_nothrow_invocable_v<Fn&, const std::shared_ptr<FutureStateBase>&>,
                "an inline continuation runs on the completing thread and must not throw");

  explicit InlineContinuation(Fn fn) noexcept(std::is_nothrow_move_constructible_v<Fn>)
      : mFn(std::move(fn)) {}

  void Schedule(const std::shared_ptr<FutureStateBase>& completed) noexcept override {
    mFn(completed);
    Release();
  }

 private:
  void Run() override {}

  Fn mFn;
};

}  // namespace kivcore::async
