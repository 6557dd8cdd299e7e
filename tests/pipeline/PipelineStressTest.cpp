// Many producers, random abandonment, clears, pauses and destruction with requests queued: every request
// whose future is still held must be answered exactly once, with its own outputs or as terminated, and the
// evaluator's statistics must account for every request queued exactly once.

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <unordered_set>
#include <vector>

#include "kivml/EvaluatorStatistics.h"
#include "kivml/ResultCodes.h"
#include "support/FakeEvaluator.h"
#include "support/FakeModel.h"
#include "support/FutureChecks.h"
#include "support/SettledStatistics.h"

namespace kivml::testing {
namespace {

#if defined(__SANITIZE_THREAD__) || defined(__SANITIZE_ADDRESS__)
constexpr int kRequestsPerProducer = 1000;  // sanitizers run some ten times slower: keep it to seconds
#else
constexpr int kRequestsPerProducer = 10000;
#endif
constexpr int kProducers = 16;

struct Kept {
  int32_t value;
  kivcore::async::Future<utility::FeatureContainerVector> future;
};

using KeptByProducer = std::vector<std::vector<Kept>>;

// Batched or not, and the prediction lanes.
class PipelineStressTest : public ::testing::TestWithParam<std::tuple<bool, unsigned>> {
 protected:
  void SetUp() override {
    const auto [batched, lanes] = GetParam();
    mEvaluator = FakeEvaluator::Create();
    mEvaluator->SetModel(MakeScalarModel());
    mEvaluator->SetShouldUseBatching(batched);
    mEvaluator->SetPredictionLanes(lanes);
    const auto started = mEvaluator->Start();
    ASSERT_TRUE(started.WaitFor(kFutureTimeout));
    ASSERT_EQ(started.Get(), 0);
  }

  // Every producer queues its requests, dropping one in eight futures at once, while the queue is cleared
  // and the worker paused now and then. Returns the futures kept, by producer.
  KeptByProducer ProduceAmidClearsAndPauses();

  std::shared_ptr<FakeEvaluator> mEvaluator;
};

KeptByProducer PipelineStressTest::ProduceAmidClearsAndPauses() {
  FakeEvaluator* const evaluator = mEvaluator.get();
  KeptByProducer kept(kProducers);
  std::vector<std::thread> producers;
  for (int producer = 0; producer < kProducers; ++producer) {
    producers.emplace_back([&, producer] {
      std::minstd_rand random(static_cast<unsigned>(producer) + 1);
      for (int i = 0; i < kRequestsPerProducer; ++i) {
        const int32_t value = producer * kRequestsPerProducer + i + 1;  // 0 is what dummy rows carry
        auto future = evaluator->QueueFeatures(MakeRequest(value));
        if (random() % 8 != 0) {  // one in eight is dropped at once
          kept[producer].push_back({value, std::move(future)});
        }
      }
    });
  }
  // Meanwhile, clear the queue and pause the worker now and then.
  std::atomic<bool> producing{true};
  std::thread chaos([&] {
    std::minstd_rand random(99);
    while (producing.load()) {
      std::this_thread::sleep_for(std::chrono::microseconds(200 + random() % 800));
      if (random() % 3 == 0) {
        evaluator->ClearQueuedFeatures();
      } else {
        evaluator->Pause();
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 300));
        evaluator->Resume();
      }
    }
  });
  for (auto& producer : producers) {
    producer.join();
  }
  producing = false;
  chaos.join();
  return kept;
}

TEST_P(PipelineStressTest, EveryHeldRequestIsAnsweredExactlyOnce) {
  KeptByProducer kept = ProduceAmidClearsAndPauses();
  auto& evaluator = mEvaluator;

  // Destroyed while paused with requests queued: those fail as terminated.
  evaluator->Pause();
  std::vector<Kept> last;
  for (int32_t value = -100; value < 0; ++value) {
    last.push_back({value, evaluator->QueueFeatures(MakeRequest(value))});
  }
  const auto predictedSingles = evaluator->Singles();
  const auto predictedBatches = evaluator->Batches();
  evaluator.reset();
  kept.push_back(std::move(last));

  size_t answered = 0;
  size_t terminated = 0;
  for (const auto& requests : kept) {
    for (const auto& request : requests) {
      const int result = ResultOf(request.future);
      if (result == 0) {
        ASSERT_EQ(ValueOf(request.future.Get()), request.value);
        ++answered;
      } else {
        ASSERT_EQ(result, eModelExecutionTerminated) << "request " << request.value;
        ++terminated;
      }
    }
  }
  // Nothing ran twice. (Records are read before the end, so a prediction still running then is missed;
  // its request was checked above all the same.)
  std::unordered_set<int32_t> predicted;
  const auto checkOnce = [&](int32_t value) {
    if (value != 0) {
      EXPECT_TRUE(predicted.insert(value).second) << "predicted twice: " << value;
    }
  };
  for (int32_t value : predictedSingles) {
    checkOnce(value);
  }
  for (const auto& batch : predictedBatches) {
    for (int32_t value : batch) {
      checkOnce(value);
    }
  }
  EXPECT_GT(answered, 0u);
  EXPECT_GE(terminated, 100u);
  RecordProperty("answered", static_cast<int>(answered));
  RecordProperty("terminated", static_cast<int>(terminated));
}

TEST_P(PipelineStressTest, StatisticsAccountForEveryQueuedRequestOnce) {
  const KeptByProducer kept = ProduceAmidClearsAndPauses();
  uint64_t keptCount = 0;
  uint64_t keptAnswered = 0;
  uint64_t keptTerminated = 0;
  for (const auto& requests : kept) {
    for (const auto& request : requests) {
      const int result = ResultOf(request.future);
      ++keptCount;
      keptAnswered += result == 0 ? 1 : 0;
      keptTerminated += result == eModelExecutionTerminated ? 1 : 0;
    }
  }
  // Requests whose futures were dropped may still be queued: the worker is not paused, so they drain.
  const EvaluatorStatistics statistics = SettledStatistics(*mEvaluator);
  EXPECT_EQ(statistics.queued, static_cast<uint64_t>(kProducers * kRequestsPerProducer));
  EXPECT_EQ(Accounted(statistics), statistics.queued);
  EXPECT_EQ(statistics.failed, 0u);
  EXPECT_GE(statistics.answered, keptAnswered);
  EXPECT_GE(statistics.terminated, keptTerminated);
  EXPECT_LE(statistics.abandoned, statistics.queued - keptCount);
  // Every answered request ran, and was timed, once.
  EXPECT_EQ(statistics.queueWait.count, statistics.answered);
  EXPECT_EQ(statistics.completion.count, statistics.answered);
  if (std::get<0>(GetParam())) {
    uint64_t batchedRows = 0;
    for (const auto& size : statistics.rowsPerBatch) {
      batchedRows += size.rows * size.batches;
    }
    EXPECT_EQ(batchedRows, statistics.answered);
  }
  EXPECT_EQ(statistics.lanes.size(), std::get<1>(GetParam()));
}

INSTANTIATE_TEST_SUITE_P(Modes, PipelineStressTest,
                         ::testing::Combine(::testing::Bool(), ::testing::Values(1U, 2U, 4U)),
                         [](const auto& mode) {
                           return std::string(std::get<0>(mode.param) ? "Batched" : "Unbatched") + "Lanes" +
                                  std::to_string(std::get<1>(mode.param));
                         });

}  // namespace
}  // namespace kivml::testing
