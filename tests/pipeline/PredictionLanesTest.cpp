// Prediction lanes: several workers taking requests and batches from one queue.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "kivml/EvaluatorOptions.h"
#include "kivml/ResultCodes.h"
#include "kivml/Settings.h"
#include "support/FakeEvaluator.h"
#include "support/FakeModel.h"
#include "support/FutureChecks.h"
#include "support/ManualFillClock.h"
#include "support/ScopedSetting.h"
#include "support/TraceCapture.h"

namespace kivml::testing {
namespace {

using RequestFuture = kivcore::async::Future<utility::FeatureContainerVector>;

// Counts the backend calls in flight. With `awaitOverlap` a call waits (bounded) until that many calls
// are in flight together, so a test sees overlap without depending on how threads get scheduled.
class Overlap {
 public:
  explicit Overlap(int awaitOverlap = 0) : mAwait(awaitOverlap) {}

  void Enter() {
    std::unique_lock lock(mMutex);
    mMost = std::max(mMost, ++mInFlight);
    mChanged.notify_all();
    if (mAwait > 0) {
      mChanged.wait_for(lock, kFutureTimeout, [this] { return mMost >= mAwait; });
    } else {
      lock.unlock();
      std::this_thread::sleep_for(std::chrono::microseconds(200));  // room for another call to start
      lock.lock();
    }
    --mInFlight;
  }

  int Most() const {
    std::lock_guard lock(mMutex);
    return mMost;
  }

 private:
  const int mAwait;
  mutable std::mutex mMutex;
  std::condition_variable mChanged;
  int mInFlight = 0;
  int mMost = 0;
};

class PredictionLanesTest : public ::testing::Test {
 protected:
  std::shared_ptr<FakeEvaluator> Start(FakeEvaluator::Behaviour behaviour, bool batched, unsigned lanes,
                                       const std::vector<int32_t>& queuedBeforeStart = {}) {
    auto evaluator = FakeEvaluator::Create(std::move(behaviour), mClock);
    evaluator->SetModel(MakeScalarModel());
    evaluator->SetShouldUseBatching(batched);
    evaluator->ForceBatchSize(4);
    evaluator->SetPredictionLanes(lanes);
    for (int32_t value : queuedBeforeStart) {
      mFutures.push_back(evaluator->QueueFeatures(MakeRequest(value)));
    }
    const auto started = evaluator->Start();
    EXPECT_TRUE(started.WaitFor(kFutureTimeout));
    EXPECT_EQ(started.Get(), 0);
    return evaluator;
  }

  void Queue(FakeEvaluator& evaluator, int32_t first, int32_t last) {
    for (int32_t value = first; value <= last; ++value) {
      mFutures.push_back(evaluator.QueueFeatures(MakeRequest(value)));
    }
  }

  // Every future so far carries its own request back: answered once, to the right caller.
  void ExpectEveryRequestEchoed() {
    for (size_t i = 0; i < mFutures.size(); ++i) {
      ASSERT_EQ(ResultOf(mFutures[i]), 0) << "request " << i + 1;
      EXPECT_EQ(ValueOf(mFutures[i].Get()), static_cast<int32_t>(i + 1));
    }
  }

  const std::shared_ptr<ManualFillClock> mClock = std::make_shared<ManualFillClock>();
  std::vector<RequestFuture> mFutures;
};

TEST_F(PredictionLanesTest, LanesPredictSideBySideWhileOneLaneNeverOverlaps) {
  const auto overlap = std::make_shared<Overlap>(2);
  auto evaluator =
      Start({.onPredict = [overlap](const utility::FeatureContainerVector&) { overlap->Enter(); }}, false, 2);
  EXPECT_EQ(evaluator->GetPredictionLanes(), 2U);
  Queue(*evaluator, 1, 2);
  ExpectEveryRequestEchoed();
  EXPECT_EQ(overlap->Most(), 2);

  mFutures.clear();
  const auto single = std::make_shared<Overlap>();
  auto one =
      Start({.onPredict = [single](const utility::FeatureContainerVector&) { single->Enter(); }}, false, 1);
  EXPECT_EQ(one->GetPredictionLanes(), 1U);
  Queue(*one, 1, 40);
  ExpectEveryRequestEchoed();
  EXPECT_EQ(single->Most(), 1);
}

TEST_F(PredictionLanesTest, EachLaneTakesOneBatchInArrivalOrderPaddedOnlyWhereTheBackendNeedsIt) {
  for (const bool mustFill : {false, true}) {
    SCOPED_TRACE(mustFill ? "padded" : "unpadded");
    mFutures.clear();
    const auto overlap = std::make_shared<Overlap>(2);
    FakeEvaluator::Behaviour behaviour{.mustFillBatch = mustFill};
    behaviour.onPredictBatched = [overlap](const LocalEvaluator::BatchRows&) {
      overlap->Enter();
      return 0;
    };
    // Queued before Start: the first lane takes a batch and, leaving requests behind, wakes the second.
    auto evaluator = Start(std::move(behaviour), true, 2, {1, 2, 3, 4, 5, 6});
    ExpectEveryRequestEchoed();
    EXPECT_EQ(overlap->Most(), 2);
    auto batches = evaluator->Batches();
    std::sort(batches.begin(), batches.end());
    const std::vector<std::vector<int32_t>> expected =
        mustFill ? std::vector<std::vector<int32_t>>{{1, 2, 3, 4}, {5, 6, 0, 0}}
                 : std::vector<std::vector<int32_t>>{{1, 2, 3, 4}, {5, 6}};
    EXPECT_EQ(batches, expected);
  }
}

TEST_F(PredictionLanesTest, ABackendThatCannotPredictConcurrentlyRunsOneLane) {
  const auto overlap = std::make_shared<Overlap>();
  TraceCapture traces;
  auto evaluator =
      Start({.canPredictConcurrently = false,
             .onPredict = [overlap](const utility::FeatureContainerVector&) { overlap->Enter(); }},
            false, 3);
  EXPECT_EQ(evaluator->GetPredictionLanes(), 1U);
  EXPECT_TRUE(traces.Saw("The session cannot run predictions concurrently: 1 prediction lane instead of 3"));
  Queue(*evaluator, 1, 30);
  ExpectEveryRequestEchoed();
  EXPECT_EQ(overlap->Most(), 1);
}

TEST_F(PredictionLanesTest, TheLaneCountComesFromTheSettingUnlessTheHostChooses) {
  const auto lanesOf = [](std::optional<unsigned> chosen) {
    auto evaluator = FakeEvaluator::Create();
    evaluator->SetModel(MakeScalarModel());
    if (chosen) {
      evaluator->SetPredictionLanes(*chosen);
    }
    const auto started = evaluator->Start();
    EXPECT_TRUE(started.WaitFor(kFutureTimeout));
    return evaluator->GetPredictionLanes();
  };
  EXPECT_EQ(lanesOf(std::nullopt), 1U);
  EXPECT_EQ(lanesOf(kFitMachineLanes), LocalEvaluator::FitMachineLanes());
  EXPECT_EQ(lanesOf(1000), LocalEvaluator::kMostLanes);
  {
    const ScopedSetting setting(settings::kPredictionLanes.key, " 3 ");
    EXPECT_EQ(lanesOf(std::nullopt), 3U);
    EXPECT_EQ(lanesOf(2), 2U);
  }
  {
    const ScopedSetting setting(settings::kPredictionLanes.key, "0");
    EXPECT_EQ(lanesOf(std::nullopt), LocalEvaluator::FitMachineLanes());
  }
  {
    const ScopedSetting setting(settings::kPredictionLanes.key, "many");
    EXPECT_EQ(lanesOf(std::nullopt), 1U);
  }
  EXPECT_GE(LocalEvaluator::FitMachineLanes(), 1U);
  EXPECT_LE(LocalEvaluator::FitMachineLanes(), LocalEvaluator::kMostFittedLanes);
}

TEST_F(PredictionLanesTest, PauseHoldsEveryLaneClearFailsWhatWaitsAndResumeDrainsTheRest) {
  for (const bool batched : {false, true}) {
    SCOPED_TRACE(batched ? "batched" : "unbatched");
    mFutures.clear();
    auto evaluator = Start({.mustFillBatch = false}, batched, 3);
    ASSERT_TRUE(evaluator->Pause());
    Queue(*evaluator, 1, 20);
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_TRUE(evaluator->Batches().empty());
    EXPECT_TRUE(evaluator->Singles().empty());
    evaluator->ClearQueuedFeatures();
    for (const auto& future : mFutures) {
      EXPECT_EQ(ResultOf(future), eModelExecutionTerminated);
    }
    mFutures.clear();
    Queue(*evaluator, 1, 20);
    ASSERT_TRUE(evaluator->Resume());
    ExpectEveryRequestEchoed();
  }
}

TEST_F(PredictionLanesTest, ManyProducersAreEachAnsweredOnceWithTheirOwnRequest) {
  for (const bool batched : {false, true}) {
    SCOPED_TRACE(batched ? "batched" : "unbatched");
    auto evaluator = Start({.mustFillBatch = false, .record = false}, batched, 4);
    constexpr int kProducers = 8;
    constexpr int kEach = 500;
    std::vector<std::thread> producers;
    std::atomic<int> wrong{0};
    for (int producer = 0; producer < kProducers; ++producer) {
      producers.emplace_back([&, producer] {
        for (int i = 0; i < kEach; ++i) {
          const int32_t value = producer * kEach + i + 1;
          auto future = evaluator->QueueFeatures(MakeRequest(value));
          if (ResultOf(future) != 0 || ValueOf(future.Get()) != value) {
            ++wrong;
          }
        }
      });
    }
    for (auto& producer : producers) {
      producer.join();
    }
    EXPECT_EQ(wrong.load(), 0);
  }
}

}  // namespace
}  // namespace kivml::testing
