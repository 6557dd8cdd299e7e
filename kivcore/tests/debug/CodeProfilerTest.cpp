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

// Zeroes the process-wide manager's logs and puts its settings back afterwards.
class CodeProfilerTest : public ::testing::Test {
 protected:
  void SetUp() override { Manager().Reset(); }
  void TearDown() override {
    Manager().SetConditionalProfiling(mConditional);
    Manager().SetProfilingVolume(mVolume);
  }
  static CodeProfilerManager& Manager() { return CodeProfilerManager::Get(); }

  const bool mConditional = Manager().IsConditionalProfiling();
  const int mVolume = Manager().GetProfilingVolume();
};

TEST_F(CodeProfilerTest, ScopesTimeTheirLifetime) {
  CodeProfilerManager manager;
  const auto log = manager.CreateNewProfileDataLog("kivtest.scope", CodeProfilerManager::kDefaultVolume);
  {
    CodeProfiler profiler(log);
    // Spun rather than slept: MinGW's sleep_for may return early for waits under a millisecond.
    const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(50);
    while (std::chrono::steady_clock::now() < until) {
    }
  }
  EXPECT_EQ(log->CallCount(), 1u);
  EXPECT_GE(log->MinNanoseconds(), 50'000u);
}

TEST_F(CodeProfilerTest, RegionsCountEveryPassAndHonourConditionalVolume) {
  ProfileRegion region("kivtest.Region Predict");
  Manager().SetConditionalProfiling(false);
  Manager().SetProfilingVolume(0);
  {
    std::vector<std::jthread> threads;  // racing the region's first pass
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&region] {
        for (int i = 0; i < 1000; ++i) {
          auto scope = region.Scope();
        }
      });
    }
  }
  ASSERT_NE(region.Log(), nullptr);
  EXPECT_EQ(region.Log()->CallCount(), 4000u);

  Manager().SetConditionalProfiling(true);
  Manager().SetProfilingVolume(CodeProfilerManager::kDefaultVolume - 1);
  EXPECT_FALSE(region.Scope().IsActive());
  Manager().SetProfilingVolume(CodeProfilerManager::kDefaultVolume);
  { auto scope = region.Scope(); }
  EXPECT_EQ(region.Log()->CallCount(), 4001u);

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

TEST_F(CodeProfilerTest, SummaryListsRegionsLongestFirst) {
  CodeProfilerManager manager;
  manager.CreateNewProfileDataLog("kivtest.short", 50)->AddSample(1'000);
  const auto longer = manager.CreateNewProfileDataLog("kivtest.long", 50);
  longer->AddSample(2'000'000);
  longer->AddSample(4'000'000);
  manager.CreateNewProfileDataLog("kivtest.short", 50)->AddSample(3'000);
  const std::string summary = manager.Summary();
  const size_t longRow = summary.find("kivtest.long");
  const size_t shortRow = summary.find("kivtest.short");
  ASSERT_LT(summary.find("Calls"), longRow);
  ASSERT_LT(longRow, shortRow);
  ASSERT_NE(shortRow, std::string::npos);
  EXPECT_EQ(summary.find("kivtest.short", shortRow + 1), std::string::npos)
      << "logs of one name form one row";
  // kivtest.long: 2 calls, 6 ms in all, 3000 µs mean, 4000 max; kivtest.short: 2 calls, 1 µs min over both.
  const std::string longLine = summary.substr(longRow, summary.find('\n', longRow) - longRow);
  for (const char* field : {" 2 ", "6.000", "3000.000", "4000.000"}) {
    EXPECT_NE(longLine.find(field), std::string::npos) << field << " in " << longLine;
  }
  const std::string shortLine = summary.substr(shortRow, summary.find('\n', shortRow) - shortRow);
  EXPECT_NE(shortLine.find(" 2 "), std::string::npos) << shortLine;
  EXPECT_NE(shortLine.find("1.000"), std::string::npos) << shortLine;
  manager.Reset();
  EXPECT_EQ(longer->CallCount() + longer->MinNanoseconds() + longer->MaxNanoseconds(), 0u);
}

TEST_F(CodeProfilerTest, SettingsComeFromTheDebugDatabase) {
  DebugDatabase database;
  CodeProfilerManager manager;
  database.LoadFromSettingsString("kivcore.Profile.Conditional=1;kivcore.Profile.Volume=20");
  manager.LoadSettings(database);
  database.LoadFromSettingsString("kivcore.Profile.Conditional=yes;kivcore.Profile.Volume=7x");  // ignored
  manager.LoadSettings(database);
  EXPECT_TRUE(manager.IsConditionalProfiling());
  EXPECT_EQ(manager.GetProfilingVolume(), 20);
  database.LoadFromSettingsString("kivcore.Profile.Conditional=false");
  manager.LoadSettings(database);
  EXPECT_FALSE(manager.IsConditionalProfiling());
}

}  // namespace
}  // namespace kivcore::debug
