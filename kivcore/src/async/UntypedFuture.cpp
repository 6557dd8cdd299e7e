#include "kivcore/async/UntypedFuture.h"

#include <utility>

#include "UntypedContinuation.h"
#include "kivcore/async/AsyncExecutor.h"
#include "kivcore/async/FutureIsCancelledException.h"
#include "kivcore/async/FutureStateBase.h"
#include "kivcore/logging/Logging.h"

namespace kivcore::async {

UntypedFuture::UntypedFuture() noexcept = default;
UntypedFuture::UntypedFuture(std::shared_ptr<FutureStateBase> state) noexcept : mState(std::move(state)) {}
UntypedFuture::UntypedFuture(const UntypedFuture& other) noexcept = default;
UntypedFuture::UntypedFuture(UntypedFuture&& other) noexcept = default;
UntypedFuture& UntypedFuture::operator=(const UntypedFuture& other) noexcept = default;
UntypedFuture& UntypedFuture::operator=(UntypedFuture&& other) noexcept = default;
UntypedFuture::~UntypedFuture() = default;

bool UntypedFuture::IsReady() const noexcept {
  return mState != nullptr && mState->IsReady();
}

bool UntypedFuture::HasException() const noexcept {
  return mState != nullptr && mState->HasException();
}

std::exception_ptr UntypedFuture::GetException() const noexcept {
  return HasException() ? mState->Exception() : std::exception_ptr();
}

void UntypedFuture::Wait() const {
  if (mState == nullptr) {
    throw FutureIsCancelledException();
  }
  mState->Wait();
}

bool UntypedFuture::WaitUntil(std::chrono::steady_clock::time_point deadline) const {
  if (mState == nullptr) {
    throw FutureIsCancelledException();
  }
  return mState->WaitUntil(deadline);
}

void UntypedFuture::OnComplete(std::shared_ptr<AsyncExecutor> executor,
                               std::function<void()> callback) const {
  if (mState == nullptr) {
    throw FutureIsCancelledException();
  }
  if (executor == nullptr) {
    executor = mState->ContinuationExecutor();
  }
  FutureStateBase::AddContinuation(mState,
                                   new UntypedContinuation(std::move(callback), std::move(executor), mState));
}

bool WaitForUntypedUntil(const UntypedFuture& future, const std::chrono::steady_clock::time_point& deadline,
                         bool logTimeout) {
  static_assert(std::chrono::steady_clock::duration::period::den >= 1000000000,
                "deadlines are meant to resolve nanoseconds");
  if (!future.IsValid()) {
    if (logTimeout) {
      logging::LogMessage("Future: wait on a future without a state");
    }
    return false;
  }
  if (future.WaitUntil(deadline)) {
    return true;
  }
  if (logTimeout) {
    logging::LogMessage("Future: wait timed out");
  }
  return false;
}

}  // namespace kivcore::async
