// The histograms behind evaluator statistics: percentiles within a bucket, exact extremes and means, and
// records of several lanes adding up to what one would have recorded.

#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <vector>

#include "DurationHistogram.h"
#include "RequestRecords.h"
#include "kivml/EvaluatorStatistics.h"
#include "kivml/ResultCodes.h"

namespace kivml::utility {
namespace {

using namespace std::chrono_literals;
using Rows = std::vector<EvaluatorStatistics::BatchRows>;

TEST(DurationHistogramTest, PercentilesFallWithinABucketAndNeverLeaveTheRecordedRange) {
  DurationHistogram histogram;
  EXPECT_EQ(histogram.Summarise().p99, 0ns);  // nothing recorded yet

  for (int micros = 1; micros <= 1000; ++micros) {
    histogram.Record(std::chrono::microseconds(micros));
  }
  const EvaluatorStatistics::Durations summary = histogram.Summarise();
  EXPECT_EQ(summary.count, 1000u);
  EXPECT_EQ(summary.mean, 500500ns);
  EXPECT_EQ(summary.max, 1000us);
  for (const auto& [read, exact] :
       {std::pair{summary.p50, 500us}, {summary.p95, 950us}, {summary.p99, 990us}}) {
    const double ratio = std::chrono::duration<double>(read) / std::chrono::duration<double>(exact);
    EXPECT_LE(std::abs(std::log(ratio)), std::log(EvaluatorStatistics::kBucketRatio)) << read.count();
  }
  EXPECT_EQ(histogram.Percentile(0.0), 1us);
  // The public header promises the buckets' width.
  EXPECT_DOUBLE_EQ(std::pow(10.0, 1.0 / DurationHistogram::kBucketsPerDecade),
                   EvaluatorStatistics::kBucketRatio);

  // Beyond the buckets' reach (and a clock that went back) the extremes stand in.
  DurationHistogram outliers;
  outliers.Record(-5ns);
  outliers.Record(2000s);
  EXPECT_EQ(outliers.Percentile(0.5), 0ns);
  EXPECT_EQ(outliers.Percentile(1.0), 2000s);
}

TEST(DurationHistogramTest, MergedHistogramsMatchOneThatRecordedEverything) {
  DurationHistogram first;
  DurationHistogram second;
  DurationHistogram both;
  for (int i = 1; i <= 300; ++i) {
    const auto duration = std::chrono::microseconds(i * i);
    (i % 3 == 0 ? first : second).Record(duration);
    both.Record(duration);
  }
  first += second;
  const auto merged = first.Summarise();
  const auto whole = both.Summarise();
  EXPECT_EQ(merged.count, whole.count);
  EXPECT_EQ(merged.mean, whole.mean);
  EXPECT_EQ(merged.p50, whole.p50);
  EXPECT_EQ(merged.p95, whole.p95);
  EXPECT_EQ(merged.p99, whole.p99);
  EXPECT_EQ(merged.max, whole.max);
}

TEST(RequestRecordsTest, LanesWithDifferentBatchSizesAddUp) {
  const RequestRecords::TimePoint start{};
  const std::vector<RequestRecords::TimePoint> queued(7, start);
  RequestRecords lane;
  lane.RecordBatch({queued.data(), 3}, 3, 1, start, start, start + 4ms);
  RequestRecords other;
  other.RecordBatch({queued.data(), 7}, 7, 0, start, start + 1ms, start + 2ms);
  other.RecordBatch({}, 1, 3, std::nullopt, start + 3ms, start + 4ms);  // run again alone
  other.RecordAnswers(queued, start + 5ms, 6, eInferenceFailure);
  other.RecordOutcome(eModelExecutionTerminated, 2);
  lane += other;
  EXPECT_EQ(lane.Predicting(), 6ms);

  EvaluatorStatistics statistics;
  lane.Summarise(statistics);
  EXPECT_EQ(statistics.rowsPerBatch, (Rows{{1, 1}, {3, 1}, {7, 1}}));
  EXPECT_DOUBLE_EQ(statistics.meanRowsPerBatch, 11.0 / 3.0);
  EXPECT_EQ(statistics.dummyRows, 4u);
  EXPECT_EQ(statistics.fillWait.count, 2u);
  EXPECT_EQ(statistics.queueWait.count, 10u);
  EXPECT_EQ(statistics.answered, 6u);
  EXPECT_EQ(statistics.failed, 1u);
  EXPECT_EQ(statistics.terminated, 2u);
}

}  // namespace
}  // namespace kivml::utility
