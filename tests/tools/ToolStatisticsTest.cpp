#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <string>

#include "StatisticsFormat.h"
#include "kivml/ResultCodes.h"

namespace kivml::cli {
namespace {

using namespace std::chrono_literals;

#define EXPECT_CONTAINS(text, part) EXPECT_NE(std::string(text).find(part), std::string::npos) << (text)

// A batched evaluator's window with a failure, two lanes and times that are not whole milliseconds.
EvaluatorStatistics Snapshot() {
  EvaluatorStatistics statistics;
  statistics.valid = true;
  statistics.windowSpan = 2s + 1ns;
  statistics.queued = 12;
  statistics.answered = 9;
  statistics.failed = 1;
  statistics.terminated = 1;
  statistics.abandoned = 1;
  statistics.failuresByResult = {{eInferenceFailure, 1}};
  statistics.queueWait = {10, 1234567ns, 1ms, 2ms, 3ms, 3100us};
  statistics.prediction = {3, 500us, 500us, 500us, 500us, 500us};
  statistics.completion = {10, 1734567ns, 1500us, 2500us, 3500us, 3600us};
  statistics.batches = 3;
  statistics.meanRowsPerBatch = 10.0 / 3.0;
  statistics.rowsPerBatch = {{2, 1}, {4, 2}};
  statistics.dummyRows = 6;
  statistics.fillWait = {3, 7ns, 0ns, 20ns, 20ns, 20ns};
  statistics.lanes = {{1ms, 0.0005}, {500us, 0.00025}};
  return statistics;
}

TEST(KivmlToolStatistics, JsonComesBackToTheNanosecond) {
  const EvaluatorStatistics written = Snapshot();
  const EvaluatorStatistics read = StatisticsFormat::FromJson(StatisticsFormat::ToJson(written));
  EXPECT_TRUE(read.valid);
  EXPECT_EQ(read.windowSpan, written.windowSpan);
  EXPECT_EQ(read.queued, 12u);
  EXPECT_EQ(read.answered + read.failed + read.terminated + read.abandoned, 12u);
  EXPECT_EQ(read.failuresByResult, written.failuresByResult);  // negative codes survive their hex form
  EXPECT_EQ(read.queueWait.mean, 1234567ns);
  EXPECT_EQ(read.queueWait.max, 3100us);
  EXPECT_EQ(read.completion.p99, 3500us);
  EXPECT_EQ(read.fillWait.mean, 7ns);
  EXPECT_EQ(read.rowsPerBatch, written.rowsPerBatch);
  EXPECT_DOUBLE_EQ(read.meanRowsPerBatch, written.meanRowsPerBatch);
  EXPECT_EQ(read.dummyRows, 6u);
  ASSERT_EQ(read.lanes.size(), 2u);
  EXPECT_EQ(read.lanes[1].predicting, 500us);
  EXPECT_DOUBLE_EQ(read.lanes[1].busyShare, 0.00025);
  EXPECT_EQ(StatisticsFormat::ToJson(written)["failures"][0]["result"].get<std::string>(), "0xED6C0004");
}

TEST(KivmlToolStatistics, PrintedSnapshotGivesCountsTimesBatchesAndLanes) {
  std::ostringstream text;
  StatisticsFormat::Print(text, Snapshot());
  EXPECT_CONTAINS(text.str(), "12 queued, 9 answered, 1 failed, 1 terminated, 1 abandoned");
  EXPECT_CONTAINS(text.str(), "failed with 0xED6C0004: 1");
  EXPECT_CONTAINS(text.str(), "queue wait     10    1.235   1.000   2.000   3.000   3.100");
  EXPECT_CONTAINS(text.str(), "fill wait");
  EXPECT_CONTAINS(text.str(), "3 batches, 3.33 rows per batch (1 of 2, 2 of 4), 6 dummy rows");
  EXPECT_CONTAINS(text.str(), "lane 2: predicting 0.500 ms, 0.0% of the window");

  // Unbatched: no batch lines; an evaluator that is not the library's has nothing to show.
  EvaluatorStatistics unbatched = Snapshot();
  unbatched.batches = 0;
  text.str("");
  StatisticsFormat::Print(text, unbatched);
  EXPECT_EQ(text.str().find("batch"), std::string::npos) << text.str();
  text.str("");
  StatisticsFormat::Print(text, EvaluatorStatistics());
  EXPECT_CONTAINS(text.str(), "no statistics");
}

}  // namespace
}  // namespace kivml::cli
