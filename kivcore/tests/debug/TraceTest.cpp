#include "kivcore/debug/Trace.h"

#include <gtest/gtest.h>

#include <atomic>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "TestEnvironment.h"

namespace kivcore::debug {
namespace {

// Routes the trace into mTraced, starting from no level set.
class TraceTest : public ::testing::Test {
 protected:
  TraceTest() { ClearTraceLevels(); }
  ~TraceTest() override {
    ClearTraceLevels();
    SetTraceSink(mPrevious);
  }

  std::string mTraced;  // "[category:level] message" lines
  TraceSink mPrevious =
      SetTraceSink([this](int level, const std::string& category, const std::string& message) {
        mTraced += "[" + category + ":" + std::to_string(level) + "] " + message + "\n";
      });
};

void TraceAtLevel2(std::atomic<int>& builds) {
  KIV_TRACE("kivtest.site", 2, (++builds, std::string("built")));
}

TEST_F(TraceTest, MessageIsBuiltOnlyWhileItsSiteIsEnabled) {
  std::atomic<int> builds{0};
  TraceAtLevel2(builds);             // no level yet
  SetTraceLevel("kivtest.site", 1);  // the site reads the levels again after every change
  TraceAtLevel2(builds);
  EXPECT_EQ(builds.load(), 0);
  SetTraceLevel("kivtest.site", 2);
  TraceAtLevel2(builds);
  SetTraceLevel("kivtest.site", -1);
  TraceAtLevel2(builds);
  SetTraceLevel("*", 2);
  ClearTraceLevels();  // forgets "*" too
  TraceAtLevel2(builds);
  EXPECT_EQ(builds.load(), 1);
  EXPECT_EQ(mTraced, "[kivtest.site:2] built\n");
}

TEST_F(TraceTest, LevelRules) {
  SetTraceLevel("a", 3);
  EXPECT_TRUE(TraceEnabled("a", 3));
  EXPECT_FALSE(TraceEnabled("a", 4));
  EXPECT_FALSE(TraceEnabled("b", 0));
  SetTraceLevel("*", 1);
  EXPECT_TRUE(TraceEnabled("b", 1));
  EXPECT_FALSE(TraceEnabled("b", 2));
  EXPECT_TRUE(TraceEnabled("a", 3));  // its own level beats "*"
  SetTraceLevel("c", -1);
  EXPECT_FALSE(TraceEnabled("c", 0));  // disabled even though "*" is on
  SetTraceLevel("*", -5);
  EXPECT_FALSE(TraceEnabled("b", 0));
  EXPECT_TRUE(TraceEnabled("a", 1));
  Trace(4, "a", "too detailed");
  Trace(2, "a", "shown");
  EXPECT_EQ(mTraced, "[a:2] shown\n");
}

TEST_F(TraceTest, SettingsStringAndEnvironmentRefresh) {
  EXPECT_EQ(ApplyTraceSettings("kivmachinelearning=7, *=0;no-level; bad=x; =3"), 2);
  EXPECT_TRUE(TraceEnabled("kivmachinelearning", 7));
  EXPECT_FALSE(TraceEnabled("kivmachinelearning", 8));
  EXPECT_TRUE(TraceEnabled("other", 0));
  EXPECT_FALSE(TraceEnabled("other", 1));

  ASSERT_TRUE(kivcore::test::SetEnvironment("KIVCORE_TRACE", "kivtest.env=5"));
  const auto* category = reinterpret_cast<const unsigned char*>("kivtest.env");
  EXPECT_FALSE(TraceEnabled(category, 5, false));  // the environment is only read again on request
  EXPECT_TRUE(TraceEnabled(category, 5, true));
  kivcore::test::ClearEnvironment("KIVCORE_TRACE");
  EXPECT_TRUE(TraceEnabled("kivmachinelearning", 7));  // entries it does not name are kept
}

TEST_F(TraceTest, ConcurrentTracingWhileLevelsChange) {
  std::atomic<int> builds{0};
  std::atomic<int> traced{0};
  SetTraceSink([&traced](int, const std::string&, const std::string&) { ++traced; });
  {
    std::jthread tracer([&builds](std::stop_token stop) {
      while (!stop.stop_requested()) {
        TraceAtLevel2(builds);
      }
    });
    for (int i = 0; i < 200; ++i) {
      SetTraceLevel("kivtest.site", i % 2 == 0 ? 2 : -1);
    }
  }
  // Trace() checks again, so a message built just before a switch-off may be dropped, never the reverse.
  EXPECT_LE(traced.load(), builds.load());
}

TEST_F(TraceTest, DefaultSinkWritesOneLineToStandardError) {
  SetTraceSink({});
  SetTraceLevel("kivtest.stderr", 0);
  ::testing::internal::CaptureStderr();
  Trace(0, "kivtest.stderr", "hello");
  Trace(0, "kivtest.stderr", "ends its own line\n");  // gets no second line end
  EXPECT_EQ(::testing::internal::GetCapturedStderr(),
            "[kivtest.stderr:0] hello\n[kivtest.stderr:0] ends its own line\n");
}

TEST_F(TraceTest, HostSinkReceivesTheMessageAsTraced) {
  std::vector<std::string> received;
  SetTraceSink(
      [&received](int, const std::string&, const std::string& message) { received.push_back(message); });
  SetTraceLevel("kivtest.sink", 0);
  Trace(0, "kivtest.sink", "no line end");
  Trace(0, "kivtest.sink", "its own line end\n");
  EXPECT_EQ(received, (std::vector<std::string>{"no line end", "its own line end\n"}));
}

}  // namespace
}  // namespace kivcore::debug
