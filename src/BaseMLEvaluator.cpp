#include "BaseMLEvaluator.h"

#include <algorithm>
#include <cstddef>
#include <exception>
#include <iterator>
#include <utility>

#include "kivcore/threads/AsyncThreadedExecutor.h"
#include "kivcore/threads/AsyncThreadedSubExecutor.h"
#include "kivcore/threads/ScopedLock.h"
#include "kivml/ResultCodes.h"

namespace kivml {

using kivcore::threads::ScopedLock;

BaseMLEvaluator::BaseMLEvaluator(std::shared_ptr<const BatchFillClock> clock)
    : mClock(std::move(clock)),
      mMutex("kivml::BaseMLEvaluator"),
      mGate(false),
      mWindowStart(mClock->Now()),
      mThrottleExecutor(kivcore::threads::CreateSubExecutor(kivcore::threads::GetCPUBoundExecutor(), 1)) {}

BaseMLEvaluator::~BaseMLEvaluator() {
  // Nobody else can reach the queue now: no lock needed.
  ErrorOutQueue(mQueue);
}

kivcore::async::Future<utility::FeatureContainerVector> BaseMLEvaluator::QueueFeatures(
    utility::FeatureContainerVector&& inputs) {
  kivcore::async::Promise<utility::FeatureContainerVector> promise;
  kivcore::async::Future<utility::FeatureContainerVector> future = promise.GetFuture();
  try {
    const BatchFillClock::TimePoint queuedAt = mClock->Now();  // outside the lock: it is shared
    {
      ScopedLock lock(mMutex, "kivml::BaseMLEvaluator::QueueFeatures");
      // Strong guarantee: if the queue cannot grow, the promise and inputs are left where they are.
      mQueue.emplace_back(std::move(promise), std::move(inputs), queuedAt);
      try {
        mGate.Open();
        PostThrottleNotificationLocked(mQueue.size());
      } catch (...) {
        // The request never became visible to the worker (it needs the lock to pop): take it back so
        // that the queue is as before and the failure goes into this request's future.
        promise = std::move(mQueue.back().mPromise);
        mQueue.pop_back();
        if (mQueue.empty()) {
          mGate.Close();
        }
        throw;
      }
      ++mQueued;
    }
    MarkQueueHasPendingFeatures();
  } catch (...) {
    // After a late failure (in MarkQueueHasPendingFeatures) the request is queued and `promise` is empty:
    // the worker will still answer it.
    promise.SetException(std::current_exception());
  }
  return future;
}

void BaseMLEvaluator::RegisterThrottleFxn(std::weak_ptr<ThrottleFunction> throttle) {
  ScopedLock lock(mMutex, "kivml::BaseMLEvaluator::RegisterThrottleFxn");
  mThrottles.push_back(std::move(throttle));
}

int BaseMLEvaluator::SetModel(kivcore::classref::InterfaceRef<IMLModel> model) {
  ScopedLock lock(mMutex, "kivml::BaseMLEvaluator::SetModel");
  BindModelLocked(std::move(model));
  return 0;
}

BaseMLEvaluator::RequestQueue BaseMLEvaluator::PopQueuedFeatureRequests() {
  RequestQueue taken;
  ScopedLock lock(mMutex, "kivml::BaseMLEvaluator::PopQueuedFeatureRequests");
  if (!mQueue.empty()) {
    mGate.Close();
    taken.swap(mQueue);
  }
  PostThrottleNotificationLocked(mQueue.size());
  return taken;
}

BaseMLEvaluator::RequestQueue BaseMLEvaluator::PopQueuedFeatureRequests(size_t most, size_t& left) {
  RequestQueue taken;
  ScopedLock lock(mMutex, "kivml::BaseMLEvaluator::PopQueuedFeatureRequests");
  if (most >= mQueue.size()) {
    taken.swap(mQueue);
  } else {
    const auto end = mQueue.begin() + static_cast<std::ptrdiff_t>(most);
    taken.insert(taken.end(), std::make_move_iterator(mQueue.begin()), std::make_move_iterator(end));
    mQueue.erase(mQueue.begin(), end);
  }
  if (mQueue.empty()) {
    mGate.Close();
  }
  left = mQueue.size();
  PostThrottleNotificationLocked(left);
  return taken;
}

void BaseMLEvaluator::ClearQueuedFeatures() {
  RequestQueue taken;
  {
    ScopedLock lock(mMutex, "kivml::BaseMLEvaluator::ClearQueuedFeatures");
    mGate.Close();
    taken.swap(mQueue);
    PostThrottleNotificationLocked(mQueue.size());
  }
  ErrorOutQueue(taken);
}

bool BaseMLEvaluator::HasQueuedItems() const {
  ScopedLock lock(mMutex, "kivml::BaseMLEvaluator::HasQueuedItems");
  return !mQueue.empty();
}

kivcore::classref::InterfaceRef<IMLModel> BaseMLEvaluator::GetModel() const {
  ScopedLock lock(mMutex, "kivml::BaseMLEvaluator::GetModel");
  return mModel;
}

bool BaseMLEvaluator::GetShouldUseBatching() const {
  ScopedLock lock(mMutex, "kivml::BaseMLEvaluator::GetShouldUseBatching");
  return mShouldUseBatching;
}

size_t BaseMLEvaluator::GetThrottleThreshold() const {
  ScopedLock lock(mMutex, "kivml::BaseMLEvaluator::GetThrottleThreshold");
  return ThrottleThresholdLocked();
}

size_t BaseMLEvaluator::ThrottleThresholdLocked() const noexcept {
  return mShouldUseBatching ? GetBatchSize() * kBatchesBeforeThrottle : kUnbatchedThrottleThreshold;
}

void BaseMLEvaluator::ErrorOutQueue(RequestQueue& requests) noexcept {
  const auto abandoned = static_cast<uint64_t>(std::count_if(
      requests.begin(), requests.end(), [](const auto& request) { return request.mPromise.IsAbandoned(); }));
  // Counted before the futures complete, so that a snapshot taken once the answers are in has them. A future
  // abandoned in between is still counted as terminated: its promise is failed all the same.
  mQueueRecorder.RecordOutcome(eModelExecutionTerminated, requests.size() - abandoned);
  mQueueRecorder.RecordAbandoned(abandoned);
  for (auto& request : requests) {
    if (request.mPromise.IsAbandoned()) {
      continue;
    }
    try {
      request.mPromise.SetException(kivcore::kiv_exception(
          "BaseMLEvaluator::ErrorOutQueue: Model inference queue cleared", eModelExecutionTerminated));
    } catch (...) {
      // Could not even build the exception: the promise's destructor still fails the future (broken).
    }
  }
  requests.clear();
}

EvaluatorStatistics BaseMLEvaluator::GetStatistics() const {
  EvaluatorStatistics statistics;
  statistics.valid = true;
  {
    ScopedLock lock(mMutex, "kivml::BaseMLEvaluator::GetStatistics");
    statistics.queued = mQueued;
    statistics.windowStart = mWindowStart;
  }
  statistics.windowSpan = std::max(mClock->Now() - statistics.windowStart, std::chrono::nanoseconds::zero());
  RequestRecords total;
  mQueueRecorder.AddTo(total);
  AddWorkerStatistics(total, statistics.windowSpan, statistics.lanes);
  total.Summarise(statistics);
  return statistics;
}

void BaseMLEvaluator::ResetStatistics() {
  {
    ScopedLock lock(mMutex, "kivml::BaseMLEvaluator::ResetStatistics");
    mQueued = 0;
    mWindowStart = mClock->Now();
  }
  mQueueRecorder.Clear();
  ClearWorkerStatistics();
}

void BaseMLEvaluator::AddWorkerStatistics(RequestRecords& /*total*/, std::chrono::nanoseconds /*span*/,
                                          std::vector<EvaluatorStatistics::Lane>& /*lanes*/) const {}

void BaseMLEvaluator::ClearWorkerStatistics() {}

void BaseMLEvaluator::PostThrottleNotificationLocked(size_t queueLength) {
  std::erase_if(mThrottles,
                [](const std::weak_ptr<ThrottleFunction>& throttle) { return throttle.expired(); });
  if (mThrottles.empty()) {
    return;  // nobody to tell: skip the post, which is most of the cost of a queued request
  }
  const ThrottleOptions option = queueLength <= ThrottleThresholdLocked() ? kResume : kPause;
  mThrottleExecutor->Post(
      [throttles = mThrottles, option] {
        for (const auto& weak : throttles) {
          if (const auto throttle = weak.lock()) {
            (*throttle)(option);
          }
        }
      },
      0);
}

}  // namespace kivml
