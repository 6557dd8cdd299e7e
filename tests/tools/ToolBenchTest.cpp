#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

#include "BenchOptionLists.h"
#include "BenchRunFile.h"
#include "BenchTargets.h"
#include "CLI11Include.h"
#include "ToolError.h"
#include "kivml/EvaluatorOptions.h"

namespace kivml::cli {
namespace {

// What parsing `arguments` throws, or "accepted".
template <class Parse>
std::string Refusal(const Parse& parse, const std::vector<std::string>& arguments) {
  try {
    parse(arguments);
  } catch (const CLI::ValidationError& error) {
    return error.what();
  }
  return "accepted";
}

#define EXPECT_CONTAINS(text, part) EXPECT_NE(std::string(text).find(part), std::string::npos) << (text)

TEST(KivmlToolBenchLists, LanesAreCountsOrTheMachinesFit) {
  EXPECT_EQ(BenchOptionLists::Lanes({"1,auto", "4"}), (std::vector<unsigned>{1, kFitMachineLanes, 4}));
  EXPECT_EQ(BenchOptionLists::Lanes({"0"}), (std::vector<unsigned>{kFitMachineLanes}));
  EXPECT_EQ(BenchOptionLists::Lanes({"256"}), (std::vector<unsigned>{256}));
  EXPECT_EQ(BenchOptionLists::Concurrency({"32,1", "8"}), (std::vector<size_t>{32, 1, 8}));
}

TEST(KivmlToolBenchLists, BadItemsAreRefusedWithTheReason) {
  const auto lanes = [](const std::vector<std::string>& arguments) { BenchOptionLists::Lanes(arguments); };
  EXPECT_CONTAINS(Refusal(lanes, {"1,,2"}), "'1,,2' has an empty item");
  EXPECT_CONTAINS(Refusal(lanes, {"2,"}), "'2,' has an empty item");
  EXPECT_CONTAINS(Refusal(lanes, {""}), "'' has an empty item");
  // auto and 0 are one setting.
  EXPECT_CONTAINS(Refusal(lanes, {"auto,0"}), "auto is given twice");
  EXPECT_CONTAINS(Refusal(lanes, {"2", "1,2"}), "2 is given twice");
  for (const std::string item : {"-1", "0x2", "Auto", " 1", "two"}) {
    const std::string refusal = Refusal(lanes, {item});
    EXPECT_CONTAINS(refusal, "'" + item + "' is not a whole number");
    EXPECT_CONTAINS(refusal, "or auto");
  }
  EXPECT_CONTAINS(Refusal(lanes, {"257"}), "257");
  EXPECT_CONTAINS(Refusal(lanes, {"99999999999999999999"}), "too large");

  const auto concurrency = [](const std::vector<std::string>& arguments) {
    BenchOptionLists::Concurrency(arguments);
  };
  EXPECT_CONTAINS(Refusal(concurrency, {"0"}), "0");
  EXPECT_CONTAINS(Refusal(concurrency, {"auto"}), "'auto' is not a whole number");
  EXPECT_CONTAINS(Refusal(concurrency, {"4097"}), "4097");
  EXPECT_CONTAINS(Refusal(concurrency, {"1,4,4"}), "4 is given twice");
}

// `calls` calls of `rowsPerCall` rows at `rate` rows per second, each taking `p50Ms`.
LoopResult Loop(double rate, double p50Ms = 1.0, size_t rowsPerCall = 1) {
  constexpr size_t kCalls = 40;
  LoopResult result;
  result.calls = kCalls;
  result.requests = kCalls * rowsPerCall;
  result.wallSeconds = static_cast<double>(result.requests) / rate;
  result.latency = LatencyStats(std::vector<double>(kCalls, p50Ms / 1e3));
  return result;
}

// Rates (or results) per concurrency level.
BenchSeries Series(const std::vector<std::pair<size_t, LoopResult>>& points, size_t rowsPerCall = 1) {
  BenchSeries series;
  series.rowsPerCall = rowsPerCall;
  for (const auto& [concurrency, result] : points) {
    series.points.push_back({concurrency, result, std::nullopt});
  }
  return series;
}

BenchConfiguration Configuration(bool batched, unsigned lanesAsked, BenchSeries kivml) {
  BenchConfiguration configuration;
  configuration.batched = batched;
  configuration.lanesAsked = lanesAsked;
  configuration.lanes = lanesAsked == kFitMachineLanes ? 2 : lanesAsked;
  configuration.batchSize = batched ? 8 : 1;
  configuration.device = "CPU";
  configuration.kivml = std::move(kivml);
  return configuration;
}

const BenchTarget& Find(const std::vector<BenchTarget>& targets, const std::string& key) {
  for (const BenchTarget& target : targets) {
    if (target.key == key) {
      return target;
    }
  }
  throw std::logic_error("no target " + key);
}

TEST(KivmlToolBenchTargets, LevelsAndModesNotMeasuredAreNotMisses) {
  BenchRun run;
  run.handOneRow = Series({{4, Loop(100)}});
  run.configurations.push_back(Configuration(true, 1, Series({{4, Loop(500)}})));
  const std::vector<BenchTarget> targets = BenchTargets::Compute({run});
  ASSERT_EQ(targets.size(), 6U);
  for (const BenchTarget& target : targets) {
    EXPECT_FALSE(target.measured) << target.key;
    EXPECT_FALSE(target.passed) << target.key;
    EXPECT_FALSE(target.requirement.empty()) << target.key;
  }
}

TEST(KivmlToolBenchTargets, ManyClientsMeetTheBetterHandWrittenReferenceOfTheirOwnRun) {
  // Without spinning the best configuration reaches 0.95 of its run's ready batches; with spinning the
  // references are slower, and a configuration 1.07 times its own run's better reference is the best.
  BenchRun off;
  off.handOneRow = Series({{8, Loop(100)}});
  off.handBatches = Series({{8, Loop(200, 1.0, 8)}}, 8);
  off.configurations.push_back(Configuration(true, 1, Series({{8, Loop(190)}})));
  off.configurations.push_back(Configuration(false, 1, Series({{8, Loop(120)}})));
  BenchRun on;
  on.spinning = true;
  on.handOneRow = Series({{8, Loop(100)}});
  on.handBatches = Series({{8, Loop(150, 1.0, 8)}}, 8);
  on.configurations.push_back(Configuration(false, kFitMachineLanes, Series({{8, Loop(160)}})));

  const BenchTarget target = Find(BenchTargets::Compute({off, on}), "clients_8");
  ASSERT_TRUE(target.measured);
  EXPECT_NEAR(target.value, 160.0 / 150.0, 1e-9);
  EXPECT_TRUE(target.passed);
  EXPECT_EQ(target.configuration, "unbatched, lanes auto (2), spinning on");
  EXPECT_DOUBLE_EQ(target.kivmlValue, 160.0);
  EXPECT_EQ(target.reference, "hand-written batches of 8 from one thread (spinning run)");
  EXPECT_DOUBLE_EQ(target.referenceValue, 150.0);

  // Alone, the run without spinning misses by its best configuration.
  const BenchTarget alone = Find(BenchTargets::Compute({off}), "clients_8");
  EXPECT_NEAR(alone.value, 0.95, 1e-9);
  EXPECT_FALSE(alone.passed);
  EXPECT_EQ(alone.reference, "hand-written batches of 8 from one thread");

  // One-row Runs from as many threads are the reference where they are the faster.
  off.handOneRow = Series({{8, Loop(250)}});
  const BenchTarget oneRow = Find(BenchTargets::Compute({off}), "clients_8");
  EXPECT_NEAR(oneRow.value, 190.0 / 250.0, 1e-9);
  EXPECT_EQ(oneRow.reference, "hand-written one-row Runs from 8 threads");
}

TEST(KivmlToolBenchTargets, FewClientsMeetOneRowRunsFromAsManyThreads) {
  BenchRun run;
  run.handOneRow = Series({{1, Loop(100)}, {2, Loop(180)}});
  // Ready batches from one thread are no reference for a single client.
  run.handBatches = Series({{1, Loop(1000, 1.0, 8)}, {2, Loop(1000, 1.0, 8)}}, 8);
  run.configurations.push_back(Configuration(false, 1, Series({{1, Loop(95)}, {2, Loop(170)}})));
  const std::vector<BenchTarget> targets = BenchTargets::Compute({run});
  const BenchTarget& one = Find(targets, "clients_1");
  EXPECT_NEAR(one.value, 0.95, 1e-9);
  EXPECT_TRUE(one.passed);  // the threshold itself passes
  EXPECT_EQ(one.reference, "hand-written one-row Runs from 1 thread");
  const BenchTarget& two = Find(targets, "clients_2");
  EXPECT_NEAR(two.value, 170.0 / 180.0, 1e-9);
  EXPECT_FALSE(two.passed);
  EXPECT_EQ(two.name, "2 clients");
}

TEST(KivmlToolBenchTargets, BatchedAloneIsPairedWithTheUnbatchedOfTheSameLanesAndRun) {
  BenchRun off;
  off.configurations.push_back(Configuration(true, 1, Series({{1, Loop(80)}})));
  off.configurations.push_back(Configuration(true, kFitMachineLanes, Series({{1, Loop(95)}})));
  off.configurations.push_back(Configuration(false, 1, Series({{1, Loop(100)}})));
  off.configurations.push_back(Configuration(false, kFitMachineLanes, Series({{1, Loop(200)}})));
  BenchRun on;
  on.spinning = true;
  on.configurations.push_back(Configuration(false, 1, Series({{1, Loop(50)}})));  // no batched partner

  const BenchTarget target = Find(BenchTargets::Compute({off, on}), "batched_alone");
  ASSERT_TRUE(target.measured);
  EXPECT_NEAR(target.value, 0.8, 1e-9);
  EXPECT_FALSE(target.passed);
  EXPECT_EQ(target.configuration, "batched, lanes 1, spinning off");
  EXPECT_EQ(target.reference, "unbatched, lanes 1, spinning off");
}

TEST(KivmlToolBenchTargets, UnbatchedOverheadIsTheSmallestP50DifferenceOverRawOneRowRuns) {
  BenchRun run;
  run.rawOneRow = Series({{1, Loop(900, 1.000)}});
  run.configurations.push_back(Configuration(true, 1, Series({{1, Loop(900, 0.5)}})));  // not unbatched
  run.configurations.push_back(Configuration(false, 1, Series({{1, Loop(800, 1.020)}})));
  run.configurations.push_back(Configuration(false, kFitMachineLanes, Series({{1, Loop(800, 1.012)}})));
  BenchTarget target = Find(BenchTargets::Compute({run}), "unbatched_overhead");
  ASSERT_TRUE(target.measured);
  EXPECT_NEAR(target.value, 12.0, 1e-6);
  EXPECT_TRUE(target.passed);
  EXPECT_TRUE(target.atMost);
  EXPECT_EQ(target.configuration, "unbatched, lanes auto (2), spinning off");
  EXPECT_DOUBLE_EQ(target.referenceValue, 1.0);

  run.configurations.pop_back();
  target = Find(BenchTargets::Compute({run}), "unbatched_overhead");
  EXPECT_NEAR(target.value, 20.0, 1e-6);
  EXPECT_FALSE(target.passed);
}

class KivmlToolBenchRunFile : public ::testing::Test {
 protected:
  void SetUp() override {
    mDir = std::filesystem::temp_directory_path() /
           ("kivml_tool_run_" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) + "_" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(mDir);
  }
  void TearDown() override { std::filesystem::remove_all(mDir); }

  std::filesystem::path mDir;
};

TEST_F(KivmlToolBenchRunFile, ARunComesBackAsMeasured) {
  BenchRun run;
  run.spinning = true;
  LoopResult odd;
  odd.requests = 24;
  odd.calls = 3;
  odd.wallSeconds = 0.1 + 0.2;  // not a short decimal
  odd.latency = LatencyStats({0.3, 1.0 / 3.0, 1e-7});
  run.configurations.push_back(Configuration(true, kFitMachineLanes, Series({{1, Loop(50)}, {32, odd}})));
  run.configurations.back().device = "GPU (\"name\"\n)";
  EvaluatorStatistics statistics;
  statistics.valid = true;
  statistics.queued = statistics.answered = 24;
  statistics.queueWait = {24, std::chrono::nanoseconds(1234567), {}, {}, std::chrono::microseconds(3), {}};
  run.configurations.back().kivml.points.back().statistics = statistics;
  run.configurations.push_back(Configuration(false, 3, Series({{1, Loop(70)}})));
  run.rawBatches = Series({{1, odd}}, 8);
  run.handOneRow = Series({{1, Loop(90)}, {32, Loop(91)}});
  run.handBatches = Series({{1, Loop(300, 2.0, 8)}}, 8);

  const std::filesystem::path file = mDir / "run.json";
  BenchRunFile::Write(file, run);
  const BenchRun read = BenchRunFile::Read(file);

  EXPECT_TRUE(read.spinning);
  ASSERT_EQ(read.configurations.size(), 2U);
  const BenchConfiguration& first = read.configurations[0];
  EXPECT_TRUE(first.batched);
  EXPECT_EQ(first.lanesAsked, kFitMachineLanes);
  EXPECT_EQ(first.lanes, 2U);
  EXPECT_EQ(first.batchSize, 8U);
  EXPECT_EQ(first.device, "GPU (\"name\"\n)");
  ASSERT_EQ(first.kivml.points.size(), 2U);
  const LoopResult* back = first.kivml.At(32);
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(back->requests, 24U);
  EXPECT_EQ(back->calls, 3U);
  EXPECT_EQ(back->wallSeconds, 0.1 + 0.2);  // to the last bit
  EXPECT_EQ(back->latency.SortedSeconds(), odd.latency.SortedSeconds());
  // The evaluator's statistics go along; loads without them stay without.
  const auto& backStatistics = first.kivml.points[1].statistics;
  ASSERT_TRUE(backStatistics.has_value());
  EXPECT_EQ(backStatistics->answered, 24U);
  EXPECT_EQ(backStatistics->queueWait.mean, std::chrono::nanoseconds(1234567));
  EXPECT_EQ(backStatistics->queueWait.p99, std::chrono::microseconds(3));
  EXPECT_FALSE(first.kivml.points[0].statistics.has_value());
  EXPECT_EQ(read.configurations[1].lanesAsked, 3U);
  EXPECT_FALSE(read.configurations[1].batched);

  EXPECT_FALSE(read.rawOneRow.has_value());
  ASSERT_TRUE(read.rawBatches.has_value());
  EXPECT_EQ(read.rawBatches->rowsPerCall, 8U);
  EXPECT_EQ(read.rawBatches->At(1)->latency.SortedSeconds(), odd.latency.SortedSeconds());
  EXPECT_EQ(read.handOneRow.points.size(), 2U);
  EXPECT_DOUBLE_EQ(read.handOneRow.At(32)->RequestsPerSecond(), 91.0);
  ASSERT_TRUE(read.handBatches.has_value());
  EXPECT_DOUBLE_EQ(read.handBatches->At(1)->latency.PercentileMs(50), 2.0);
}

TEST_F(KivmlToolBenchRunFile, WhatIsNotARunIsRefused) {
  const auto refusal = [](const std::filesystem::path& file) {
    try {
      BenchRunFile::Read(file);
    } catch (const ToolError& error) {
      return std::string(error.what());
    }
    return std::string("accepted");
  };
  EXPECT_CONTAINS(refusal(mDir / "absent.json"), "cannot read the measurements");
  const auto write = [&](const std::string& name, const std::string& text) {
    std::ofstream(mDir / name) << text;
    return mDir / name;
  };
  EXPECT_CONTAINS(refusal(write("cut.json", "{\"format\": 2, \"spinning\": tr")), "unreadable");
  EXPECT_CONTAINS(refusal(write("partial.json", "{\"format\": 2, \"spinning\": false}")), "unreadable");
  EXPECT_CONTAINS(refusal(write("other.json", "{\"format\": 999}")), "another version of kivml");
}

}  // namespace
}  // namespace kivml::cli
