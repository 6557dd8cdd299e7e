#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "kivcore/debug/CodeProfiler.h"
#include "kivcore/debug/CodeProfilerManager.h"
#include "kivcore/debug/DebugDatabase.h"
#include "kivcore/debug/ProfileDataLog.h"
#include "kivcore/debug/ProfileRegion.h"

namespace kivcore::debug {
namespace {

// Starts each test from zeroed logs and puts the process-wide manager's settings back afterwards.
class CodeProfilerTest : public ::testing::Test {
 protected:
  void SetUp() override {
    mConditional = Manager().IsConditionalProfiling();
    mVolume = Manager().GetProfilingVolume();
    Manager().Reset();
  }
  void TearDown() override {
    Manager().SetConditionalProfiling(mConditional);
    Manager().SetProfilingVolume(mVolume);
  }
  static CodeProfilerManager& Manager() { return CodeProfilerManager::Get(); }

  bool mConditional = false;
  int mVolume = 0;
};

TEST_F(CodeProfilerTest, ScopesTimeIntoTheirLog) {
  CodeProfilerManager manager;
  const auto log = manager.CreateNewProfileDataLog("kivtest.scope", CodeProfilerManager::kDefaultVolume);
  for (int i = 0; i < 3; ++i) {
    CodeProfiler profiler(log);
    EXPECT_TRUE(profiler.IsActive());
    std::this_thread::sleep_for(std::chrono::microseconds(50));
  }
  EXPECT_EQ(log->CallCount(), 3u);
  EXPECT_GE(log->MinNanoseconds(), 50'000u);
  EXPECT_GE(log->TotalNanoseconds(), 150'000u);
  CodeProfiler inert(nullptr);
  EXPECT_FALSE(inert.IsActive());
}

TEST_F(CodeProfilerTest, RegionsHonourConditionalVolume) {
  ProfileRegion region("kivtest.Region Predict");
  const auto run = [&region] { auto scope = region.Scope(); };
  Manager().SetConditionalProfiling(false);
  Manager().SetProfilingVolume(0);
  run();
  ASSERT_NE(region.Log(), nullptr);
  EXPECT_EQ(region.Log()->CallCount(), 1u);
  EXPECT_EQ(region.Log()->Volume(), CodeProfilerManager::kDefaultVolume);

  Manager().SetConditionalProfiling(true);
  Manager().SetProfilingVolume(CodeProfilerManager::kDefaultVolume - 1);
  run();
  EXPECT_FALSE(region.Scope().IsActive());
  EXPECT_EQ(region.Log()->CallCount(), 1u);

  Manager().SetProfilingVolume(CodeProfilerManager::kDefaultVolume);
  run();
  EXPECT_EQ(region.Log()->CallCount(), 2u);

  // Chattier regions need a higher volume; regions of one name share a log.
  ProfileRegion fine("kivtest.Region Fine", 80);
  EXPECT_FALSE(fine.Scope().IsActive());
  EXPECT_EQ(fine.Log(), nullptr);
  Manager().SetProfilingVolume(80);
  { auto scope = fine.Scope(); }
  ProfileRegion sameName("kivtest.Region Fine", 80);
  { auto scope = sameName.Scope(); }
  EXPECT_EQ(fine.Log(), sameName.Log());
  EXPECT_EQ(fine.Log()->CallCount(), 2u);
}

TEST_F(CodeProfilerTest, ConcurrentScopesAreAllCounted) {
  ProfileRegion region("kivtest.Region Concurrent");
  Manager().SetConditionalProfiling(false);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&region] {
      for (int i = 0; i < 1000; ++i) {
        auto scope = region.Scope();
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(region.Log()->CallCount(), 4000u);
}

TEST_F(CodeProfilerTest, SummaryListsRegionsLongestFirst) {
  CodeProfilerManager manager;
  manager.CreateNewProfileDataLog("kivtest.short", 50)->AddSample(1'000);
  const auto longer = manager.CreateNewProfileDataLog("kivtest.long", 50);
  longer->AddSample(2'000'000);
  longer->AddSample(4'000'000);
  manager.CreateNewProfileDataLog("kivtest.short", 50)->AddSample(3'000);
  const std::string summary = manager.Summary();
  const size_t header = summary.find("Calls");
  const size_t longRow = summary.find("kivtest.long");
  const size_t shortRow = summary.find("kivtest.short");
  ASSERT_NE(header, std::string::npos);
  ASSERT_NE(longRow, std::string::npos);
  ASSERT_NE(shortRow, std::string::npos);
  EXPECT_LT(header, longRow);
  EXPECT_LT(longRow, shortRow);
  EXPECT_EQ(summary.find("kivtest.short", shortRow + 1), std::string::npos)
      << "logs of one name form one row";
  // kivtest.long: 2 calls, 6 ms in all, 3000 µs mean, 2000 min, 4000 max.
  const std::string longLine = summary.substr(longRow, summary.find('\n', longRow) - longRow);
  EXPECT_NE(longLine.find(" 2 "), std::string::npos) << longLine;
  EXPECT_NE(longLine.find("6.000"), std::string::npos) << longLine;
  EXPECT_NE(longLine.find("3000.000"), std::string::npos) << longLine;
  EXPECT_NE(longLine.find("4000.000"), std::string::npos) << longLine;
  const std::string shortLine = summary.substr(shortRow, summary.find('\n', shortRow) - shortRow);
  EXPECT_NE(shortLine.find("1.000"), std::string::npos) << shortLine;  // min over both logs, µs
  manager.Reset();
  EXPECT_EQ(longer->CallCount(), 0u);
  EXPECT_EQ(longer->MinNanoseconds(), 0u);
  EXPECT_EQ(longer->MaxNanoseconds(), 0u);
}

TEST_F(CodeProfilerTest, SettingsComeFromTheDebugDatabase) {
  DebugDatabase database;
  database.LoadFromSettingsString("kivcore.Profile.Conditional=1;kivcore.Profile.Volume=20");
  CodeProfilerManager manager;
  manager.LoadSettings(database);
  EXPECT_TRUE(manager.IsConditionalProfiling());
  EXPECT_EQ(manager.GetProfilingVolume(), 20);
  EXPECT_FALSE(manager.IsVolumeProfiled(CodeProfilerManager::kDefaultVolume));
  EXPECT_TRUE(manager.IsVolumeProfiled(20));

  database.LoadFromSettingsString("kivcore.Profile.Conditional=yes;kivcore.Profile.Volume=20x");
  manager.LoadSettings(database);
  EXPECT_TRUE(manager.IsConditionalProfiling());
  EXPECT_EQ(manager.GetProfilingVolume(), 20);
  database.LoadFromSettingsString("kivcore.Profile.Conditional=false");
  manager.LoadSettings(database);
  EXPECT_FALSE(manager.IsConditionalProfiling());
  EXPECT_TRUE(manager.IsVolumeProfiled(100));
}

}  // namespace
}  // namespace kivcore::debug
