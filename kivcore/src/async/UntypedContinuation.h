#pragma once
// The node behind UntypedFuture::OnComplete: posts a callback on an executor once the state completes.
// Threads: Schedule on the completing thread, the callback on the executor's. Lifetime: while pending it
// keeps the state it waits on alive (a callback is never lost because every future handle was dropped);
// the reference is released when the state completes, which breaks the cycle state -> node -> state.

#include <functional>
#include <memory>

#include "kivcore/async/ContinuationNode.h"

namespace kivcore::async {

class UntypedContinuation final : public ContinuationNode {
 public:
  UntypedContinuation(std::function<void()> callback, std::shared_ptr<AsyncExecutor> executor,
                      std::shared_ptr<FutureStateBase> keepAlive) noexcept;
  ~UntypedContinuation() override;

  void Schedule(const std::shared_ptr<FutureStateBase>& completed) noexcept override;

 private:
  void Run() override;

  std::function<void()> mCallback;
  std::shared_ptr<AsyncExecutor> mExecutor;
  std::shared_ptr<FutureStateBase> mKeepAlive;
};

}  // namespace kivcore::async
