#include "kivcore/async/CompoundFuture.h"

#include <utility>

#include "kivcore/async/FutureIsCancelledException.h"
#include "kivcore/async/FutureStateBase.h"
#include "kivcore/async/InlineContinuation.h"

namespace kivcore::async {

std::shared_ptr<CompoundFuture> CompoundFuture::Create(std::shared_ptr<AsyncExecutor> executor) {
  return std::shared_ptr<CompoundFuture>(new CompoundFuture(std::move(executor)));
}

CompoundFuture::CompoundFuture(std::shared_ptr<AsyncExecutor> executor) : mPromise(std::move(executor)) {}

CompoundFuture::~CompoundFuture() = default;

bool CompoundFuture::Add(const UntypedFuture& future) {
  size_t index = 0;
  {
    std::lock_guard<std::mutex> lock(mMutex);
    if (mSealed) {
      return false;
    }
    index = mAdded++;
    ++mPending;
  }
  if (!future.IsValid()) {
    MemberCompleted(index, std::make_exception_ptr(FutureIsCancelledException()));
    return true;
  }
  // Counted inline on the completing thread. The hook keeps the member state alive until it completes
  // (nobody else may hold it), and this compound with it.
  auto hook = [self = shared_from_this(), index,
               member = future.State()](const std::shared_ptr<FutureStateBase>& completed) noexcept {
    self->MemberCompleted(index, completed->HasException() ? completed->Exception() : std::exception_ptr());
  };
  FutureStateBase::AddContinuation(future.State(), new InlineContinuation<decltype(hook)>(std::move(hook)));
  return true;
}

Future<void> CompoundFuture::Seal() {
  bool completeNow = false;
  std::exception_ptr failure;
  Future<void> future;
  {
    std::lock_guard<std::mutex> lock(mMutex);
    future = mPromise.GetFuture();
    if (!mSealed) {
      mSealed = true;
      completeNow = mPending == 0;
      failure = mFailure;
    }
  }
  if (completeNow) {
    Complete(std::move(failure));
  }
  return future;
}

void CompoundFuture::MemberCompleted(size_t index, std::exception_ptr exception) noexcept {
  bool completeNow = false;
  std::exception_ptr failure;
  {
    std::lock_guard<std::mutex> lock(mMutex);
    if (exception != nullptr && (mFailure == nullptr || index < mFailedIndex)) {
      mFailure = std::move(exception);
      mFailedIndex = index;
    }
    completeNow = --mPending == 0 && mSealed;
    if (completeNow) {
      failure = mFailure;
    }
  }
  if (completeNow) {
    Complete(std::move(failure));
  }
}

// Outside the lock: completing posts the sealed future's continuations.
void CompoundFuture::Complete(std::exception_ptr failure) noexcept {
  if (failure != nullptr) {
    mPromise.SetException(std::move(failure));
  } else {
    mPromise.SetValue();
  }
}

}  // namespace kivcore::async
