#include "kivcore/debug/Assert.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "kivcore/debug/Trace.h"
#include "kivcore/logging/Logging.h"

namespace kivcore::debug {
namespace {

TEST(AssertTest, RecordersSeeFailedAssertionsWithTheirSiteAndNest) {
  ScAssertRecorder outer;
  const int value = 3;
  KIV_ASSERT(value == 3, "holds");
  const int line = __LINE__ + 1;
  KIV_ASSERT(value > 5, "value too small");
  {
    ScAssertRecorder inner;
    EXPECT_FALSE(DoSimpleAssert(nullptr, 7, nullptr, nullptr));  // recorders never ask for a break
    ASSERT_EQ(inner.Count(), 1u);
    EXPECT_EQ(inner.Reports()[0].file, "");
  }
  DoSimpleAssert("f", 2, "c", "after inner");  // the inner recorder put the outer one back
  const std::vector<AssertReport> reports = outer.Reports();
  ASSERT_EQ(reports.size(), 2u);
  EXPECT_EQ(reports[0].condition, "value > 5");
  EXPECT_EQ(reports[0].message, "value too small");
  EXPECT_EQ(reports[0].line, line);
  EXPECT_NE(reports[0].file.find("AssertTest.cpp"), std::string::npos);
  EXPECT_EQ(reports[1].message, "after inner");
}

TEST(AssertTest, SilencingIsPerThreadAndNestsWhileEveryOtherThreadIsRecorded) {
  ScAssertRecorder recorder;
  {
    ScDisableAsserts outer;
    {
      ScDisableAsserts inner;
      DoSimpleAssert("f", 1, "c", "silenced twice");
    }
    DoSimpleAssert("f", 2, "c", "silenced once");
    std::vector<std::jthread> threads;  // not silenced by this thread's scopes
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([] {
        for (int i = 0; i < 100; ++i) {
          KIV_ASSERT(i < 0, "other thread");
        }
      });
    }
  }
  DoSimpleAssert("f", 5, "c", "after the scopes");
  const std::vector<AssertReport> reports = recorder.Reports();
  ASSERT_EQ(reports.size(), 401u);
  EXPECT_EQ(reports.front().message, "other thread");
  EXPECT_EQ(reports.back().message, "after the scopes");
}

TEST(AssertTest, DefaultHandlerLogsAndTraces) {
  std::string seen;
  const logging::LogSink previousLog =
      logging::SetLogSink([&](const std::string& line) { seen += line + "\n"; });
  const TraceSink previousTrace =
      SetTraceSink([&](int level, const std::string& category, const std::string& text) {
        seen += category + "/" + std::to_string(level) + "/" + text + "\n";
      });
  SetTraceLevel("kivcore", 0);
  const AssertHandler previousHandler = SetAssertHandler({});
  EXPECT_EQ(DoSimpleAssert("model.cpp", 12, "x > 0", "negative size"), IsDebuggerAttached());
  SetAssertHandler(previousHandler);
  ClearTraceLevels();
  SetTraceSink(previousTrace);
  logging::SetLogSink(previousLog);
  const std::string logged = "Assertion failed: x > 0 (negative size) at model.cpp:12\n";  // in either order
  EXPECT_TRUE(seen == logged + "kivcore/0/" + logged || seen == "kivcore/0/" + logged + logged) << seen;
}

}  // namespace
}  // namespace kivcore::debug
