#include "UntypedContinuation.h"

#include <utility>

#include "kivcore/async/AsyncExecutor.h"
#include "kivcore/async/FutureStateBase.h"
#include "kivcore/logging/Logging.h"

namespace kivcore::async {

UntypedContinuation::UntypedContinuation(std::function<void()> callback,
                                         std::shared_ptr<AsyncExecutor> executor,
                                         std::shared_ptr<FutureStateBase> keepAlive) noexcept
    : mCallback(std::move(callback)), mExecutor(std::move(executor)), mKeepAlive(std::move(keepAlive)) {}

UntypedContinuation::~UntypedContinuation() {
  if (!HasRun() && mCallback) {
    logging::LogMessage("Future: a completion callback was dropped unrun: its executor is terminated");
  }
}

void UntypedContinuation::Schedule(const std::shared_ptr<FutureStateBase>& completed) noexcept {
  (void)completed;
  mKeepAlive.reset();  // the caller holds the state for as long as this call lasts
  PostTo(*mExecutor);
}

void UntypedContinuation::Run() {
  mCallback();
}

}  // namespace kivcore::async
