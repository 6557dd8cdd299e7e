#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <limits>
#include <stdexcept>

#include "BatchContainer.h"
#include "CalculateOptimalBatchSize.h"
#include "EvaluatorStatistician.h"
#include "kivcore/debug/DebugDatabase.h"
#include "kivml/ITensorMLFeatureAccessor.h"
#include "support/FakeTensorDescription.h"

namespace kivml::utility {
namespace {

using namespace std::chrono_literals;
using kivcore::async::Promise;

FeatureDescriptionVector FourByteRow() {
  return {testing::MakeDescription("x", features::kFloat32TensorFeatureType, {1})};
}

// Sets "kivml.BatchSizeMultiplier" for one scope.
class ScopedMultiplier {
 public:
  explicit ScopedMultiplier(std::string_view value) {
    kivcore::debug::DebugDatabase::Instance().SetEntry(kKey, value);
  }
  ~ScopedMultiplier() { kivcore::debug::DebugDatabase::Instance().RemoveEntry(kKey); }

 private:
  static constexpr std::string_view kKey = "kivml.BatchSizeMultiplier";
};

TEST(CalculateOptimalBatchSizeTest, RoundsUpToEightsBetweenEightAndTheMultipliersCap) {
  const auto row = FourByteRow();
  EXPECT_EQ(CalculateOptimalBatchSize(0, row), 8u);  // nothing known about the memory
  EXPECT_EQ(CalculateOptimalBatchSize(5, row), 8u);
  EXPECT_EQ(CalculateOptimalBatchSize(4 * 20, row), 24u);
  EXPECT_EQ(CalculateOptimalBatchSize(4 * 24, row), 24u);
  EXPECT_EQ(CalculateOptimalBatchSize(std::numeric_limits<size_t>::max(), row), 128u);
  // A row of zero bytes counts as one byte, so nothing divides by zero.
  EXPECT_EQ(CalculateOptimalBatchSize(40, FeatureDescriptionVector()), 40u);
}

TEST(CalculateOptimalBatchSizeTest, MultiplierComesFromTheDebugDatabaseWhenItIsANumber) {
  const auto row = FourByteRow();
  {
    ScopedMultiplier multiplier("4");
    EXPECT_EQ(CalculateOptimalBatchSize(std::numeric_limits<size_t>::max(), row), 32u);
  }
  EXPECT_EQ(CalculateOptimalBatchSize(std::numeric_limits<size_t>::max(), row), 128u);  // read again
  for (const char* unusable : {"0", "-4", "four", "4x", ""}) {
    ScopedMultiplier multiplier(unusable);
    EXPECT_EQ(GetBatchSizeMultiplier(), 16u) << '"' << unusable << '"';
  }
}

TEST(BatchContainerTest, RealRowsKeepTheirPromisesAndDummyRowsPadToTheBatchSize) {
  BatchContainer container(10, FourByteRow());
  std::vector<kivcore::async::Future<FeatureContainerVector>> futures;
  for (int i = 0; i < 3; ++i) {
    Promise<FeatureContainerVector> promise;
    futures.push_back(promise.GetFuture());
    EXPECT_TRUE(container.AddToBatch({std::move(promise), FeatureContainerVector(1)}));
  }
  EXPECT_EQ(container.FinalizeBatch(), 7u);
  EXPECT_EQ(container.Size(), 10u);
  EXPECT_EQ(container.GetBatchedFeatures().size(), 10u);
  EXPECT_EQ(container.GetBatchedPromises().size(), 3u);
  const auto& dummy = container.GetBatchedFeatures().back();
  ASSERT_EQ(dummy.size(), 1u);
  EXPECT_EQ(dummy.front().mFeatureName.View(), "x");
  const auto tensor = dummy.front().mFeature.Query<ITensorMLFeatureAccessor>();
  ASSERT_TRUE(tensor);
  EXPECT_EQ(*static_cast<const float*>(tensor->GetData()), 0.0f);
  EXPECT_EQ(container.FinalizeBatch(), 0u);  // already full
}

TEST(BatchContainerTest, RefusesRowsWhenFullAndDropsAbandonedRequests) {
  BatchContainer container(1, FourByteRow());
  {
    Promise<FeatureContainerVector> abandoned;
    abandoned.GetFuture();  // taken and dropped at once
    EXPECT_FALSE(container.AddToBatch({std::move(abandoned), FeatureContainerVector(1)}));
    EXPECT_TRUE(container.IsEmpty());
  }
  Promise<FeatureContainerVector> first;
  const auto firstFuture = first.GetFuture();
  EXPECT_TRUE(container.AddToBatch({std::move(first), FeatureContainerVector(1)}));

  Promise<FeatureContainerVector> second;
  const auto secondFuture = second.GetFuture();
  QueuedFeatureRequest refused{std::move(second), FeatureContainerVector(2)};
  EXPECT_FALSE(container.AddToBatch(std::move(refused)));
  EXPECT_EQ(refused.mInputs.size(), 2u);  // left to the caller, whole
  EXPECT_FALSE(refused.mPromise.IsAbandoned());
  EXPECT_EQ(container.Size(), 1u);
}

TEST(BatchContainerTest, FillsFromAnotherContainerUntilFull) {
  BatchContainer container(3, FourByteRow());
  std::deque<int> items{1, 2, 3, 4, 5};
  std::vector<kivcore::async::Future<FeatureContainerVector>> futures;
  container.FillBatchFromContainer(items, [&](int& item) {
    Promise<FeatureContainerVector> promise;
    futures.push_back(promise.GetFuture());
    return QueuedFeatureRequest{std::move(promise), FeatureContainerVector(static_cast<size_t>(item))};
  });
  EXPECT_EQ(items, (std::deque<int>{4, 5}));
  ASSERT_EQ(container.Size(), 3u);
  EXPECT_EQ(container.GetBatchedFeatures()[2].size(), 3u);

  // An item whose request nobody waits for, or that the transformer answered itself (handing over an empty
  // promise), is taken from `items` and dropped, and the caller learns how many were.
  BatchContainer other(3, FourByteRow());
  items = {1, 2, 3, 4, 5, 6};
  futures.clear();
  const size_t dropped = other.FillBatchFromContainer(items, [&](int& item) {
    Promise<FeatureContainerVector> promise;
    auto future = promise.GetFuture();
    if (item == 3) {
      auto answered = std::move(promise);
      answered.SetException(std::make_exception_ptr(std::runtime_error("refused")));
    }
    if (item != 2) {
      futures.push_back(std::move(future));  // 2's is dropped: abandoned
    }
    return QueuedFeatureRequest{std::move(promise), FeatureContainerVector(static_cast<size_t>(item))};
  });
  EXPECT_EQ(dropped, 2u);
  EXPECT_EQ(items, (std::deque<int>{6}));
  ASSERT_EQ(other.Size(), 3u);
  EXPECT_EQ(other.GetBatchedFeatures()[0].size(), 1u);
  EXPECT_EQ(other.GetBatchedFeatures()[1].size(), 4u);
  EXPECT_EQ(other.GetBatchedFeatures()[2].size(), 5u);
}

TEST(EvaluatorStatisticianTest, EstimatesOnlyFromTheFourthSample) {
  EvaluatorStatistician statistician(0.5, 0.25);
  for (int64_t sample : {10, 20, 30}) {
    statistician.RecordSample(sample);
    EXPECT_EQ(statistician.GetExpectedBatchInferenceTime(99ms), 99ms);
  }
  statistician.RecordSample(40ms);
  // Smoothed with weight 0.5: 10 -> 15 -> 22.5 -> 31.25, rounded.
  EXPECT_FLOAT_EQ(statistician.GetSmoothedTime(), 31.25f);
  EXPECT_EQ(statistician.GetExpectedBatchInferenceTime(99ms), 31ms);
  EXPECT_FLOAT_EQ(statistician.GetSecondSmoothedTime(),
                  10.0f * 0.421875f + 20 * 0.140625f + 30 * 0.1875f + 40 * 0.25f);
  EXPECT_FLOAT_EQ(statistician.GetMean(), 25.0f);
}

TEST(EvaluatorStatisticianTest, ZeroFactorsKeepTheFirstSampleWhileTheMeanMoves) {
  EvaluatorStatistician statistician;
  auto now = EvaluatorStatistician::Clock::time_point();
  const auto clock = [&] { return now; };
  for (auto elapsed : {3ms, 9ms, 9ms, 9ms}) {
    EvaluatorStatistician::ScopedTimer timer(statistician, clock);
    now += elapsed;
  }
  EXPECT_EQ(statistician.GetSampleCount(), 4u);
  EXPECT_EQ(statistician.GetExpectedBatchInferenceTime(0ms), 3ms);
  EXPECT_FLOAT_EQ(statistician.GetMean(), 7.5f);
}

}  // namespace
}  // namespace kivml::utility
