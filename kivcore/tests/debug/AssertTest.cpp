#include "kivcore/debug/Assert.h"

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "kivcore/debug/Trace.h"
#include "kivcore/logging/Logging.h"

namespace kivcore::debug {
namespace {

TEST(AssertTest, RecorderSeesFailedAssertionsWithTheirSite) {
  ScAssertRecorder recorder;
  const int value = 3;
  KIV_ASSERT(value == 3, "holds");
  const int line = __LINE__ + 1;
  KIV_ASSERT(value > 5, "value too small");
  const std::vector<AssertReport> reports = recorder.Reports();
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].condition, "value > 5");
  EXPECT_EQ(reports[0].message, "value too small");
  EXPECT_EQ(reports[0].line, line);
  EXPECT_NE(reports[0].file.find("AssertTest.cpp"), std::string::npos);
  // The recorder never asks for a break; null texts are reported as empty.
  EXPECT_FALSE(DoSimpleAssert(nullptr, 7, nullptr, nullptr));
  EXPECT_EQ(recorder.Reports().back().file, "");
}

TEST(AssertTest, DisablingIsPerThreadAndNests) {
  ScAssertRecorder recorder;
  {
    ScDisableAsserts outer;
    {
      ScDisableAsserts inner;
      DoSimpleAssert("f", 1, "c", "silenced twice");
    }
    DoSimpleAssert("f", 2, "c", "silenced once");
    // Another thread is not silenced by this one's scope.
    std::thread([] { DoSimpleAssert("f", 3, "c", "other thread"); }).join();
  }
  std::thread([] {
    ScDisableAsserts silenced;
    DoSimpleAssert("f", 4, "c", "silenced in its thread");
  }).join();
  DoSimpleAssert("f", 5, "c", "after the scopes");
  const std::vector<AssertReport> reports = recorder.Reports();
  ASSERT_EQ(reports.size(), 2u);
  EXPECT_EQ(reports[0].message, "other thread");
  EXPECT_EQ(reports[1].message, "after the scopes");
}

TEST(AssertTest, RecorderCollectsFromManyThreads) {
  ScAssertRecorder recorder;
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 200; ++i) {
        KIV_ASSERT(i < 0, "from a worker");
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(recorder.Count(), 800u);
}

TEST(AssertTest, RecordersRestoreThePreviousHandler) {
  std::atomic<int> custom{0};
  const AssertHandler original = SetAssertHandler([&custom](const AssertReport&) {
    ++custom;
    return false;
  });
  {
    ScAssertRecorder outer;
    {
      ScAssertRecorder inner;
      DoSimpleAssert("f", 1, "c", "inner");
      EXPECT_EQ(inner.Count(), 1u);
    }
    DoSimpleAssert("f", 2, "c", "outer");
    EXPECT_EQ(outer.Count(), 1u);
  }
  DoSimpleAssert("f", 3, "c", "custom");
  EXPECT_EQ(custom.load(), 1);
  SetAssertHandler(original);
}

TEST(AssertTest, DefaultHandlerLogsAndTraces) {
  std::vector<std::string> logged;
  std::vector<std::string> traced;
  const logging::LogSink previousLog =
      logging::SetLogSink([&logged](const std::string& line) { logged.push_back(line); });
  const TraceSink previousTrace =
      SetTraceSink([&traced](int level, const std::string& category, const std::string& message) {
        traced.push_back(category + "/" + std::to_string(level) + "/" + message);
      });
  SetTraceLevel("kivcore", 0);
  const AssertHandler previousHandler = SetAssertHandler({});

  const bool breakWanted = DoSimpleAssert("model.cpp", 12, "x > 0", "negative size");
  EXPECT_EQ(breakWanted, IsDebuggerAttached());
  const std::string expected = "Assertion failed: x > 0 (negative size) at model.cpp:12";
  ASSERT_EQ(logged.size(), 1u);
  EXPECT_EQ(logged[0], expected);
  ASSERT_EQ(traced.size(), 1u);
  EXPECT_EQ(traced[0], "kivcore/0/" + expected);

  SetAssertHandler(previousHandler);
  ClearTraceLevels();
  SetTraceSink(previousTrace);
  logging::SetLogSink(previousLog);
}

}  // namespace
}  // namespace kivcore::debug
