// Evaluator statistics over the fake backend and the manual clock: known waits, prediction times and batch
// sizes must come back as counts, means and percentiles (within one histogram bucket).

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "kivcore/async/AsyncExecutor.h"
#include "kivcore/config/kiv_exception.h"
#include "kivcore/debug/Assert.h"
#include "kivcore/logging/Logging.h"
#include "kivml/EvaluatorStatistics.h"
#include "kivml/ResultCodes.h"
#include "kivml/Settings.h"
#include "support/FakeEvaluator.h"
#include "support/FakeModel.h"
#include "support/FutureChecks.h"
#include "support/ManualFillClock.h"
#include "support/ScopedSetting.h"
#include "support/SettledStatistics.h"

namespace kivml::testing {
namespace {

using namespace std::chrono_literals;
using RequestFuture = kivcore::async::Future<utility::FeatureContainerVector>;
using Rows = std::vector<EvaluatorStatistics::BatchRows>;

// Whether a percentile read from the histogram is within one bucket of the exact value.
::testing::AssertionResult WithinBucket(std::chrono::nanoseconds actual, std::chrono::nanoseconds expected) {
  const double ratio = static_cast<double>(actual.count()) / static_cast<double>(expected.count());
  if (ratio <= EvaluatorStatistics::kBucketRatio && ratio >= 1.0 / EvaluatorStatistics::kBucketRatio) {
    return ::testing::AssertionSuccess();
  }
  return ::testing::AssertionFailure()
         << actual.count() << " ns is more than a bucket from " << expected.count() << " ns";
}

class EvaluatorStatisticsTest : public ::testing::Test {
 protected:
  // Made on the manual clock, not started.
  std::shared_ptr<FakeEvaluator> Make(FakeEvaluator::Behaviour behaviour, bool batched, unsigned lanes = 1) {
    auto evaluator = FakeEvaluator::Create(std::move(behaviour), mClock);
    evaluator->SetModel(MakeScalarModel());
    evaluator->SetShouldUseBatching(batched);
    evaluator->ForceBatchSize(4);
    evaluator->SetPredictionLanes(lanes);
    return evaluator;
  }

  static void Start(FakeEvaluator& evaluator) {
    const auto started = evaluator.Start();
    ASSERT_TRUE(started.WaitFor(kFutureTimeout));
    ASSERT_EQ(started.Get(), 0);
  }

  void Queue(FakeEvaluator& evaluator, int32_t first, int32_t last) {
    for (int32_t value = first; value <= last; ++value) {
      mFutures.push_back(evaluator.QueueFeatures(MakeRequest(value)));
    }
  }

  void WaitForAnswers() {
    for (const auto& future : mFutures) {
      if (future.IsValid()) {
        ASSERT_TRUE(future.WaitFor(kFutureTimeout));
      }
    }
  }

  const std::shared_ptr<ManualFillClock> mClock = std::make_shared<ManualFillClock>();
  std::vector<RequestFuture> mFutures;
};

TEST_F(EvaluatorStatisticsTest, UnbatchedRequestsShowTheirQueueWaitsPredictionsAndTheLaneBusyShare) {
  auto evaluator =
      Make({.onPredict = [this](const utility::FeatureContainerVector&) { mClock->Advance(2ms); }}, false);
  Queue(*evaluator, 1, 20);  // all at 0 ms, then one after another, 2 ms each, from 5 ms
  mClock->Advance(5ms);
  Start(*evaluator);
  WaitForAnswers();
  const EvaluatorStatistics statistics = evaluator->GetStatistics();

  ASSERT_TRUE(statistics.valid);
  EXPECT_EQ(statistics.queued, 20u);
  EXPECT_EQ(statistics.answered, 20u);
  EXPECT_EQ(statistics.failed + statistics.terminated + statistics.abandoned, 0u);
  EXPECT_EQ(statistics.windowStart, ManualFillClock::TimePoint{});
  EXPECT_EQ(statistics.windowSpan, 45ms);

  // Waits of 5, 7, ..., 43 ms.
  EXPECT_EQ(statistics.queueWait.count, 20u);
  EXPECT_EQ(statistics.queueWait.mean, 24ms);
  EXPECT_TRUE(WithinBucket(statistics.queueWait.p50, 23ms));
  EXPECT_TRUE(WithinBucket(statistics.queueWait.p95, 41ms));
  EXPECT_TRUE(WithinBucket(statistics.queueWait.p99, 43ms));
  EXPECT_EQ(statistics.queueWait.max, 43ms);
  // Percentiles never leave the recorded range: equal durations come back exactly.
  EXPECT_EQ(statistics.prediction.count, 20u);
  EXPECT_EQ(statistics.prediction.mean, 2ms);
  EXPECT_EQ(statistics.prediction.p50, 2ms);
  EXPECT_EQ(statistics.prediction.p99, 2ms);
  EXPECT_EQ(statistics.completion.count, 20u);
  EXPECT_EQ(statistics.completion.mean, 26ms);
  EXPECT_TRUE(WithinBucket(statistics.completion.p50, 25ms));
  EXPECT_EQ(statistics.completion.max, 45ms);

  EXPECT_EQ(statistics.batches, 0u);
  EXPECT_TRUE(statistics.rowsPerBatch.empty());
  EXPECT_EQ(statistics.fillWait.count, 0u);
  ASSERT_EQ(statistics.lanes.size(), 1u);
  EXPECT_EQ(statistics.lanes[0].predicting, 40ms);
  EXPECT_DOUBLE_EQ(statistics.lanes[0].busyShare, 40.0 / 45.0);
}

TEST_F(EvaluatorStatisticsTest, BatchesShowTheirRowsPaddingAndFillWaits) {
  auto evaluator = Make({.onPredictBatched =
                             [this](const LocalEvaluator::BatchRows&) {
                               mClock->Advance(10ms);
                               return 0;
                             }},
                        true);
  // A full batch at once, then a batch of two that waits 500 ms for latecomers and runs padded.
  Queue(*evaluator, 1, 6);
  Start(*evaluator);
  WaitForAnswers();
  const EvaluatorStatistics statistics = evaluator->GetStatistics();

  EXPECT_EQ(statistics.answered, 6u);
  EXPECT_EQ(statistics.batches, 2u);
  EXPECT_DOUBLE_EQ(statistics.meanRowsPerBatch, 3.0);
  EXPECT_EQ(statistics.rowsPerBatch, (Rows{{2, 1}, {4, 1}}));
  EXPECT_EQ(statistics.dummyRows, 2u);
  EXPECT_EQ(statistics.fillWait.count, 2u);
  EXPECT_EQ(statistics.fillWait.max, 500ms);
  EXPECT_EQ(statistics.fillWait.p50, 0ms);

  // Four rows waited 0 ms and two 510 ms (the first batch, then the fill wait).
  EXPECT_EQ(statistics.queueWait.count, 6u);
  EXPECT_EQ(statistics.queueWait.mean, 170ms);
  EXPECT_EQ(statistics.queueWait.p50, 0ms);
  EXPECT_TRUE(WithinBucket(statistics.queueWait.p95, 510ms));
  EXPECT_EQ(statistics.queueWait.max, 510ms);
  EXPECT_EQ(statistics.prediction.count, 2u);
  EXPECT_EQ(statistics.prediction.max, 10ms);
  EXPECT_EQ(statistics.completion.count, 6u);
  EXPECT_EQ(statistics.completion.max, 520ms);
  ASSERT_EQ(statistics.lanes.size(), 1u);
  EXPECT_EQ(statistics.lanes[0].predicting, 20ms);
  EXPECT_EQ(statistics.windowSpan, 520ms);
}

TEST_F(EvaluatorStatisticsTest, EveryRequestIsCountedOnceByHowItEnded) {
  auto evaluator = Make({.onPredict =
                             [](const utility::FeatureContainerVector& request) {
                               if (ValueOf(request) == 3) {
                                 throw kivcore::kiv_exception("refused", eInferenceFailure);
                               }
                               if (ValueOf(request) == 4) {
                                 throw kivcore::kiv_exception("misfit", eBadFeature);
                               }
                             }},
                        false);
  Queue(*evaluator, 1, 5);
  mFutures[1] = RequestFuture();  // nobody waits for 2: skipped
  Start(*evaluator);
  WaitForAnswers();
  ASSERT_TRUE(evaluator->Pause());
  Queue(*evaluator, 6, 7);
  mFutures[6] = RequestFuture();
  evaluator->ClearQueuedFeatures();  // 6 is terminated, 7 was abandoned
  const EvaluatorStatistics statistics = evaluator->GetStatistics();

  EXPECT_EQ(statistics.queued, 7u);
  EXPECT_EQ(statistics.answered, 2u);
  EXPECT_EQ(statistics.failed, 2u);
  EXPECT_EQ(statistics.failuresByResult,
            (std::map<int, uint64_t>{{eInferenceFailure, 1u}, {eBadFeature, 1u}}));
  EXPECT_EQ(statistics.terminated, 1u);
  EXPECT_EQ(statistics.abandoned, 2u);
  // Only what ran is timed.
  EXPECT_EQ(statistics.queueWait.count, 4u);
  EXPECT_EQ(statistics.prediction.count, 4u);
  EXPECT_EQ(statistics.completion.count, 4u);
}

TEST_F(EvaluatorStatisticsTest, ABatchRunAgainRowByRowCountsEachRequestOnce) {
  const auto previousSink = kivcore::logging::SetLogSink([](const std::string&) {});
  kivcore::debug::ScAssertRecorder asserts;
  auto evaluator = Make({.onPredictBatched =
                             [](const LocalEvaluator::BatchRows& rows) {
                               for (const auto& row : rows) {
                                 if (ValueOf(row) == 3) {
                                   return eInferenceFailure;
                                 }
                               }
                               return 0;
                             }},
                        true);
  Queue(*evaluator, 1, 4);
  Start(*evaluator);
  WaitForAnswers();
  const EvaluatorStatistics statistics = evaluator->GetStatistics();
  evaluator.reset();
  kivcore::logging::SetLogSink(previousSink);

  EXPECT_EQ(statistics.answered, 3u);
  EXPECT_EQ(statistics.failuresByResult, (std::map<int, uint64_t>{{eInferenceFailure, 1u}}));
  // The failed batch, then each row alone, padded with three copies of itself.
  EXPECT_EQ(statistics.batches, 5u);
  EXPECT_EQ(statistics.rowsPerBatch, (Rows{{1, 4}, {4, 1}}));
  EXPECT_EQ(statistics.dummyRows, 12u);
  EXPECT_EQ(statistics.prediction.count, 5u);
  EXPECT_EQ(statistics.fillWait.count, 1u);
  EXPECT_EQ(statistics.queueWait.count, 4u);
  EXPECT_EQ(statistics.completion.count, 4u);
}

// Runs each task as it is posted, on the posting thread: a continuation then runs inside the completion.
class InlineExecutor final : public kivcore::async::AsyncExecutor {
 public:
  bool Post(std::function<void()> task, int /*priority*/) override {
    task();
    return true;
  }
  void Pause() override {}
  void Resume() override {}
  bool IsPaused() const override { return false; }
  void Shutdown() override {}
  bool IsTerminated() const override { return false; }
};

// A host that reads the statistics as an answer arrives (to reset them after a warm-up, say) finds it
// counted, whichever way the request ended.
TEST_F(EvaluatorStatisticsTest, EachRequestIsCountedBeforeItsFutureCompletes) {
  const auto previousSink = kivcore::logging::SetLogSink([](const std::string&) {});
  kivcore::debug::ScAssertRecorder asserts;
  const auto completing = std::make_shared<InlineExecutor>();
  for (const bool batched : {false, true}) {
    SCOPED_TRACE(batched ? "batched" : "unbatched");
    const ScopedSetting noRetries(settings::kRetryFailedBatchRows.key, "false");
    // Unbatched, 2 fails; batched, the first batch of 4 is answered and the second fails whole.
    auto evaluator = Make({.onPredict =
                               [](const utility::FeatureContainerVector& request) {
                                 if (ValueOf(request) == 2) {
                                   throw kivcore::kiv_exception("refused", eInferenceFailure);
                                 }
                               },
                           .onPredictBatched =
                               [](const LocalEvaluator::BatchRows& rows) {
                                 return ValueOf(rows.front()) == 5 ? eInferenceFailure : 0;
                               }},
                          batched);
    std::mutex mutex;
    std::vector<uint64_t> accountedAsEachCompleted;
    std::vector<kivcore::async::Future<void>> continuations;
    mFutures.clear();
    const auto watch = [&] {
      continuations.push_back(mFutures.back().Then(completing, [&](const RequestFuture&) {
        // Snapshot and record in one step: a continuation that snapshots, then records after later ones,
        // would put a count taken earlier at a later place. Continuations of the first requests may still
        // be running on the worker while the last ones complete on this thread.
        std::lock_guard lock(mutex);
        accountedAsEachCompleted.push_back(Accounted(evaluator->GetStatistics()));
      }));
    };
    for (int32_t value = 1; value <= 8; ++value) {
      Queue(*evaluator, value, value);
      watch();
    }
    Start(*evaluator);
    WaitForAnswers();
    ASSERT_TRUE(evaluator->Pause());
    for (int32_t value = 9; value <= 10; ++value) {
      Queue(*evaluator, value, value);
      watch();
    }
    evaluator->ClearQueuedFeatures();
    for (const auto& continuation : continuations) {
      ASSERT_TRUE(continuation.WaitFor(kFutureTimeout));
    }
    std::lock_guard lock(mutex);
    ASSERT_EQ(accountedAsEachCompleted.size(), 10u);
    for (size_t completed = 0; completed < accountedAsEachCompleted.size(); ++completed) {
      EXPECT_GT(accountedAsEachCompleted[completed], completed)
          << "as future " << completed + 1 << " completed";
    }
  }
  kivcore::logging::SetLogSink(previousSink);
}

// Holds every prediction until `count` are in flight together and the test releases them.
class HeldPredictions {
 public:
  explicit HeldPredictions(int count) : mCount(count) {}

  void Enter() {
    std::unique_lock lock(mMutex);
    ++mEntered;
    mChanged.notify_all();
    mChanged.wait_for(lock, kFutureTimeout, [this] { return mReleased; });
  }

  bool AwaitAll() {
    std::unique_lock lock(mMutex);
    return mChanged.wait_for(lock, kFutureTimeout, [this] { return mEntered >= mCount; });
  }

  void Release() {
    std::lock_guard lock(mMutex);
    mReleased = true;
    mChanged.notify_all();
  }

 private:
  const int mCount;
  std::mutex mMutex;
  std::condition_variable mChanged;
  int mEntered = 0;
  bool mReleased = false;
};

TEST_F(EvaluatorStatisticsTest, EachLaneInUseShowsItsOwnBusyShare) {
  const auto held = std::make_shared<HeldPredictions>(2);
  auto evaluator =
      Make({.onPredict = [held](const utility::FeatureContainerVector&) { held->Enter(); }}, false, 2);
  Start(*evaluator);
  Queue(*evaluator, 1, 2);
  ASSERT_TRUE(held->AwaitAll());
  mClock->Advance(10ms);  // both lanes predict through the whole window
  held->Release();
  WaitForAnswers();
  const EvaluatorStatistics statistics = evaluator->GetStatistics();
  ASSERT_EQ(statistics.lanes.size(), 2u);
  for (const auto& lane : statistics.lanes) {
    EXPECT_EQ(lane.predicting, 10ms);
    EXPECT_DOUBLE_EQ(lane.busyShare, 1.0);
  }
  EXPECT_EQ(statistics.prediction.count, 2u);

  // A backend that cannot share its session runs, and lists, one lane.
  auto single = Make({.canPredictConcurrently = false}, false, 3);
  Start(*single);
  EXPECT_EQ(single->GetStatistics().lanes.size(), 1u);
}

// An evaluator a host wrote itself: the library keeps no statistics for it.
class HostEvaluator final : public kivcore::classref::Implements<IMLEvaluator> {
 public:
  int CheckHealth() override { return 0; }
  kivcore::async::Future<utility::FeatureContainerVector> QueueFeatures(
      utility::FeatureContainerVector&& inputs) override {
    return kivcore::async::MakeReadyFuture(std::move(inputs));
  }
  bool Pause() override { return false; }
  bool Resume() override { return false; }
  void RegisterThrottleFxn(std::weak_ptr<ThrottleFunction> /*throttle*/) override {}
};

TEST_F(EvaluatorStatisticsTest, TheWindowRestartsOnResetAndOnlyTheLibrarysEvaluatorsHaveOne) {
  auto evaluator =
      Make({.onPredict = [this](const utility::FeatureContainerVector&) { mClock->Advance(1ms); }}, false);
  const kivcore::classref::InterfaceRef<IMLEvaluator> reference = evaluator->GetEvaluatorRef();
  Start(*evaluator);
  Queue(*evaluator, 1, 3);
  WaitForAnswers();
  EXPECT_EQ(evaluator->GetStatistics().answered, 3u);

  mClock->Advance(7ms);
  ASSERT_TRUE(ResetEvaluatorStatistics(reference));
  EvaluatorStatistics statistics = GetEvaluatorStatistics(reference);
  ASSERT_TRUE(statistics.valid);
  EXPECT_EQ(statistics.windowStart, ManualFillClock::TimePoint{} + 10ms);
  EXPECT_EQ(statistics.windowSpan, 0ms);
  EXPECT_EQ(statistics.queued + Accounted(statistics), 0u);
  EXPECT_EQ(statistics.prediction.count, 0u);
  ASSERT_EQ(statistics.lanes.size(), 1u);
  EXPECT_EQ(statistics.lanes[0].predicting, 0ms);

  mFutures.clear();
  Queue(*evaluator, 4, 4);
  WaitForAnswers();
  statistics = evaluator->GetStatistics();
  EXPECT_EQ(statistics.queued, 1u);
  EXPECT_EQ(statistics.answered, 1u);
  EXPECT_EQ(statistics.windowSpan, 1ms);

  const auto host =
      kivcore::classref::MakeInterfaceRef<IMLEvaluator>(kivcore::classref::CreateObject<HostEvaluator>());
  EXPECT_FALSE(GetEvaluatorStatistics(host).valid);
  EXPECT_FALSE(ResetEvaluatorStatistics(host));
  EXPECT_FALSE(GetEvaluatorStatistics(nullptr).valid);
}

}  // namespace
}  // namespace kivml::testing
