#include "kivcore/config/InitializerRegistrar.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "kivcore/config/ResultCodes.h"
#include "kivcore/config/kiv_exception.h"
#include "kivcore/debug/Assert.h"
#include "kivcore/logging/Logging.h"

namespace kivcore::config {
namespace {

using Events = std::vector<std::string>;

// The registry is process-wide: each test uses its own names, and its registrars unregister when it ends.
class InitializerRegistrarTest : public ::testing::Test {
 protected:
  ~InitializerRegistrarTest() override {
    mRegistrars.clear();
    logging::SetLogSink(mPreviousSink);
  }

  // Registers `name`, whose steps note "init:", "shutdown:" and "cleanup:" + name.
  void Add(const std::string& name, const InitializerDependencies& dependsOn = {}, bool succeeds = true,
           EInitializerContextFlags flags = kInitializerDefault) {
    mRegistrars.push_back(std::make_unique<InitializerRegistrar>(
        name.c_str(), flags,
        [this, name, succeeds] {
          std::this_thread::sleep_for(std::chrono::milliseconds(1));  // concurrent callers arrive mid-run
          mEvents.push_back("init:" + name);
          return succeeds;
        },
        [this, name] { mEvents.push_back("shutdown:" + name); },
        [this, name] { mEvents.push_back("cleanup:" + name); }, dependsOn));
  }
  Events TakeEvents() { return std::exchange(mEvents, {}); }

  Events mEvents;  // written by whichever thread runs the initializers
  std::string mLog;
  logging::LogSink mPreviousSink = logging::SetLogSink([this](const std::string& line) { mLog += line; });
  std::vector<std::unique_ptr<InitializerRegistrar>> mRegistrars;
};

TEST_F(InitializerRegistrarTest, DependenciesAndPatternsFirstThenRegistrationOrderEachOnce) {
  Add("order.C", {"order.B"});
  Add("order.B", {"order.A", "order.NotRegistered", "order.nothing::*"});
  Add("order.user", {"order.ops::*"});
  Add("order.ops::Add");
  Add("order.opsX");                        // does not start with "order.ops::"
  Add("order.ops::Mul", {"order.ops::*"});  // a pattern does not match its owner
  Add("order.A");
  std::atomic<int> succeeded{0};
  {
    std::vector<std::jthread> threads;  // concurrent callers wait for the one running
    for (int t = 0; t < 4; ++t) {
      threads.emplace_back([&succeeded] { succeeded += RunInitializers() ? 1 : 0; });
    }
  }
  EXPECT_EQ(succeeded.load(), 4);
  EXPECT_EQ(TakeEvents(), (Events{"init:order.A", "init:order.B", "init:order.C", "init:order.ops::Add",
                                  "init:order.ops::Mul", "init:order.user", "init:order.opsX"}));
  EXPECT_TRUE(RunInitializers());
  EXPECT_TRUE(TakeEvents().empty());

  // Later registrations (a module loaded late) run on the next call, alone.
  Add("order.late", {"order.A"});
  EXPECT_TRUE(RunInitializers());
  EXPECT_EQ(TakeEvents(), Events{"init:order.late"});
}

TEST_F(InitializerRegistrarTest, FailuresHoldBackTheirDependentsUnlessOptional) {
  Add("fail.optional", {}, false, kInitializerOptional);
  Add("fail.afterOptional", {"fail.optional"});
  Add("fail.bad", {}, false);
  Add("fail.dependent", {"fail.bad"});
  Add("fail.transitive", {"fail.dependent"});
  mRegistrars.push_back(std::make_unique<InitializerRegistrar>(
      "fail.throws", kInitializerDefault,
      []() -> bool { throw kiv_exception("cannot open device", MakeErrorCode(0x10, 7)); }));
  Add("fail.afterThrow", {"fail.throws"});
  Add("fail.independent");
  EXPECT_FALSE(RunInitializers());
  EXPECT_EQ(TakeEvents(), (Events{"init:fail.optional", "init:fail.afterOptional", "init:fail.bad",
                                  "init:fail.independent"}));
  EXPECT_NE(mLog.find("Exception in initializer fail.throws"), std::string::npos) << mLog;
  EXPECT_NE(mLog.find("cannot open device"), std::string::npos) << mLog;

  // Failures are not retried and count until unregistered; an optional one never counts.
  EXPECT_FALSE(RunInitializers());
  EXPECT_TRUE(TakeEvents().empty());
  mRegistrars.resize(2);
  EXPECT_TRUE(RunInitializers());
  EXPECT_TRUE(TakeEvents().empty());
}

TEST_F(InitializerRegistrarTest, CyclesAreReportedAndNotRun) {
  debug::ScAssertRecorder recorder;
  Add("cycle.a", {"cycle.b"});
  Add("cycle.b", {"cycle.a"});
  Add("cycle.user", {"cycle.a"});
  Add("cycle.free");
  EXPECT_FALSE(RunInitializers());
  EXPECT_EQ(TakeEvents(), Events{"init:cycle.free"});
  ASSERT_EQ(recorder.Count(), 1u);
  EXPECT_NE(recorder.Reports()[0].message.find("cycle.a -> cycle.b -> cycle.a"), std::string::npos)
      << recorder.Reports()[0].message;
}

TEST_F(InitializerRegistrarTest, InitializersRegisteredDuringARunRunInIt) {
  mRegistrars.push_back(std::make_unique<InitializerRegistrar>("late.loader", kInitializerDefault, [this] {
    mRegistrars.push_back(std::make_unique<InitializerRegistrar>("late.module", kInitializerDefault, [this] {
      mEvents.push_back("init:late.module");
      return RunInitializers();  // nested calls return true at once
    }));
    return true;
  }));
  EXPECT_TRUE(RunInitializers());
  EXPECT_EQ(TakeEvents(), Events{"init:late.module"});
}

TEST_F(InitializerRegistrarTest, ShutdownReversesInitializationThenCleansUp) {
  Add("down.second", {"down.first"});
  Add("down.first");
  Add("down.failed", {}, false);
  EXPECT_FALSE(RunInitializers());
  TakeEvents();
  RunShutdown();
  EXPECT_EQ(TakeEvents(), (Events{"shutdown:down.second", "shutdown:down.first", "cleanup:down.second",
                                  "cleanup:down.first"}));
  EXPECT_FALSE(RunInitializers());  // everything is pending again, the failed one included
  EXPECT_EQ(TakeEvents(), (Events{"init:down.first", "init:down.second", "init:down.failed"}));
}

}  // namespace
}  // namespace kivcore::config
