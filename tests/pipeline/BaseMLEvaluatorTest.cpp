#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <future>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <vector>

#include "kivml/ResultCodes.h"
#include "support/FakeEvaluator.h"
#include "support/FakeModel.h"
#include "support/FutureChecks.h"

namespace kivml::testing {
namespace {

using Options = IMLEvaluator::ThrottleOptions;
using RequestFuture = kivcore::async::Future<utility::FeatureContainerVector>;

// Records what a throttle function is told, and lets a test wait for a number of notifications.
class ThrottleRecorder {
 public:
  std::shared_ptr<IMLEvaluator::ThrottleFunction> MakeFunction() {
    return std::make_shared<IMLEvaluator::ThrottleFunction>([this](Options option) {
      std::lock_guard lock(mMutex);
      mOptions.push_back(option);
      mChanged.notify_all();
    });
  }

  std::vector<Options> WaitFor(size_t count) {
    std::unique_lock lock(mMutex);
    mChanged.wait_for(lock, kFutureTimeout, [&] { return mOptions.size() >= count; });
    return mOptions;
  }

 private:
  std::mutex mMutex;
  std::condition_variable mChanged;
  std::vector<Options> mOptions;
};

// Not started: nothing takes requests out of the queue but the test.
std::shared_ptr<FakeEvaluator> IdleEvaluator(FakeEvaluator::Behaviour behaviour = {}) {
  auto evaluator = FakeEvaluator::Create(std::move(behaviour));
  evaluator->SetModel(MakeScalarModel());
  return evaluator;
}

TEST(BaseMLEvaluatorTest, PopTakesEveryRequestInQueueOrderAndClosesTheGate) {
  auto evaluator = IdleEvaluator();
  EXPECT_FALSE(evaluator->IsGateOpen());

  auto request = MakeRequest(1);
  (void)evaluator->QueueFeatures(std::move(request));
  EXPECT_TRUE(request.empty());  // moved into the queue
  for (int32_t value = 2; value <= 5; ++value) {
    (void)evaluator->QueueFeatures(MakeRequest(value));
  }
  EXPECT_TRUE(evaluator->HasQueuedItems());
  EXPECT_TRUE(evaluator->IsGateOpen());

  auto taken = evaluator->PopQueuedFeatureRequests();
  ASSERT_EQ(taken.size(), 5u);
  for (int32_t value = 1; value <= 5; ++value) {
    EXPECT_EQ(ValueOf(taken[value - 1].mInputs), value);
  }
  EXPECT_FALSE(evaluator->HasQueuedItems());
  EXPECT_FALSE(evaluator->IsGateOpen());
}

TEST(BaseMLEvaluatorTest, PopOfAnEmptyQueueLeavesTheGateAndStillSaysResume) {
  auto evaluator = IdleEvaluator();
  ThrottleRecorder recorder;
  const auto throttle = recorder.MakeFunction();
  evaluator->RegisterThrottleFxn(throttle);

  EXPECT_TRUE(evaluator->PopQueuedFeatureRequests().empty());
  EXPECT_FALSE(evaluator->IsGateOpen());
  EXPECT_EQ(recorder.WaitFor(1), std::vector<Options>{IMLEvaluator::kResume});
}

TEST(BaseMLEvaluatorTest, ClearingAndDestroyingFailQueuedRequestsWithTerminated) {
  auto evaluator = IdleEvaluator();
  std::vector<RequestFuture> cleared;
  for (int32_t value = 0; value < 3; ++value) {
    cleared.push_back(evaluator->QueueFeatures(MakeRequest(value)));
  }
  (void)evaluator->QueueFeatures(MakeRequest(3));  // abandoned at once: skipped, not failed
  evaluator->ClearQueuedFeatures();
  EXPECT_FALSE(evaluator->HasQueuedItems());
  EXPECT_FALSE(evaluator->IsGateOpen());
  for (const auto& future : cleared) {
    EXPECT_EQ(ResultOf(future), eModelExecutionTerminated);
    EXPECT_EQ(MessageOf(future), "BaseMLEvaluator::ErrorOutQueue: Model inference queue cleared");
  }

  const auto orphan = evaluator->QueueFeatures(MakeRequest(4));
  evaluator.reset();
  EXPECT_EQ(ResultOf(orphan), eModelExecutionTerminated);
}

TEST(BaseMLEvaluatorTest, ThrottleSaysPauseOncePastTheThreshold) {
  struct Case {
    bool batched;
    size_t batchSize;
    size_t threshold;
  };
  for (const Case& test : {Case{false, 1, 512}, Case{true, 4, 32}}) {
    SCOPED_TRACE(test.batched ? "batched" : "unbatched");
    auto evaluator = IdleEvaluator();
    evaluator->SetShouldUseBatching(test.batched);
    evaluator->ForceBatchSize(test.batchSize);
    EXPECT_EQ(evaluator->GetThrottleThreshold(), test.threshold);
    ThrottleRecorder recorder;
    const auto throttle = recorder.MakeFunction();
    evaluator->RegisterThrottleFxn(throttle);

    std::vector<RequestFuture> futures;
    for (size_t i = 0; i <= test.threshold; ++i) {
      futures.push_back(evaluator->QueueFeatures(MakeRequest(static_cast<int32_t>(i))));
    }
    auto options = recorder.WaitFor(test.threshold + 1);
    ASSERT_EQ(options.size(), test.threshold + 1);
    EXPECT_EQ(options[test.threshold - 1], IMLEvaluator::kResume);  // at the threshold: not over yet
    EXPECT_EQ(options[test.threshold], IMLEvaluator::kPause);

    evaluator->PopQueuedFeatureRequests();
    options = recorder.WaitFor(test.threshold + 2);
    EXPECT_EQ(options.back(), IMLEvaluator::kResume);
  }
}

TEST(BaseMLEvaluatorTest, ReleasedThrottlesAreNeverCalled) {
  auto evaluator = IdleEvaluator();
  ThrottleRecorder kept;
  ThrottleRecorder released;
  auto releasedFunction = released.MakeFunction();
  const auto keptFunction = kept.MakeFunction();
  evaluator->RegisterThrottleFxn(releasedFunction);
  evaluator->RegisterThrottleFxn(keptFunction);
  releasedFunction.reset();

  (void)evaluator->QueueFeatures(MakeRequest(1));
  (void)evaluator->QueueFeatures(MakeRequest(2));
  EXPECT_EQ(kept.WaitFor(2).size(), 2u);
  EXPECT_TRUE(released.WaitFor(0).empty());
}

TEST(BaseMLEvaluatorTest, ThrottlesRunOffTheCallerAndOutsideTheEvaluatorLock) {
  auto evaluator = IdleEvaluator();
  // Shared with the throttle function, which may still be called after the test has returned.
  struct Blocker {
    std::atomic<bool> first{true};
    std::promise<void> entered;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    std::thread::id notifiedOn;
  };
  const auto blocker = std::make_shared<Blocker>();
  const auto blocking = std::make_shared<IMLEvaluator::ThrottleFunction>([blocker](Options) {
    if (blocker->first.exchange(false)) {
      blocker->notifiedOn = std::this_thread::get_id();
      blocker->entered.set_value();
      blocker->released.wait();
    }
  });
  evaluator->RegisterThrottleFxn(blocking);

  (void)evaluator->QueueFeatures(MakeRequest(1));
  blocker->entered.get_future().wait();
  // The notification is stuck in host code; the queue must still take requests and answer questions.
  auto more = std::async(std::launch::async, [&] {
    (void)evaluator->QueueFeatures(MakeRequest(2));
    return evaluator->HasQueuedItems();
  });
  const bool answered = more.wait_for(kFutureTimeout) == std::future_status::ready;
  blocker->release.set_value();
  ASSERT_TRUE(answered);
  EXPECT_TRUE(more.get());
  EXPECT_NE(blocker->notifiedOn, std::this_thread::get_id());
}

TEST(BaseMLEvaluatorTest, QueueFeaturesNeverThrowsToItsCaller) {
  FakeEvaluator::Behaviour behaviour;
  behaviour.onQueued = [] { throw std::runtime_error("scheduling failed"); };
  auto evaluator = IdleEvaluator(std::move(behaviour));

  RequestFuture future;
  EXPECT_NO_THROW(future = evaluator->QueueFeatures(MakeRequest(7)));
  // The request made it into the queue before the failure: it is still there to be answered.
  EXPECT_TRUE(evaluator->HasQueuedItems());
  EXPECT_FALSE(future.IsReady());
  evaluator->ClearQueuedFeatures();
  EXPECT_EQ(ResultOf(future), eModelExecutionTerminated);
}

}  // namespace
}  // namespace kivml::testing
