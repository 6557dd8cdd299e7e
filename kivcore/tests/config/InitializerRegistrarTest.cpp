#include "kivcore/config/InitializerRegistrar.h"

#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "kivcore/config/ResultCodes.h"
#include "kivcore/config/kiv_exception.h"
#include "kivcore/debug/Assert.h"
#include "kivcore/logging/Logging.h"

namespace kivcore::config {
namespace {

// The registry is process-wide: every test uses its own names and destroys its registrars before ending,
// which unregisters them.
class InitializerRegistrarTest : public ::testing::Test {
 protected:
  void SetUp() override {
    mPreviousSink = logging::SetLogSink([this](const std::string& line) {
      std::lock_guard lock(mMutex);
      mLogged.push_back(line);
    });
  }
  void TearDown() override {
    mRegistrars.clear();
    logging::SetLogSink(mPreviousSink);
  }

  // Registers `name`, whose steps note "init:", "shutdown:" and "cleanup:" + name; `succeeds` false makes
  // its initializer fail.
  void Add(const std::string& name, const InitializerDependencies& dependsOn = {}, bool succeeds = true,
           EInitializerContextFlags flags = kInitializerDefault) {
    mNames.push_back(std::make_unique<std::string>(name));
    const std::string* stored = mNames.back().get();
    mRegistrars.push_back(std::make_unique<InitializerRegistrar>(
        stored->c_str(), flags,
        [this, stored, succeeds] {
          Note("init:" + *stored);
          return succeeds;
        },
        [this, stored] { Note("shutdown:" + *stored); }, [this, stored] { Note("cleanup:" + *stored); },
        dependsOn));
  }

  void Note(const std::string& event) {
    std::lock_guard lock(mMutex);
    mEvents.push_back(event);
  }

  std::vector<std::string> TakeEvents() {
    std::lock_guard lock(mMutex);
    return std::exchange(mEvents, {});
  }

  std::vector<std::string> Logged() {
    std::lock_guard lock(mMutex);
    return mLogged;
  }

  std::mutex mMutex;
  std::vector<std::string> mEvents;  // guarded by mMutex
  std::vector<std::string> mLogged;  // guarded by mMutex
  std::vector<std::unique_ptr<std::string>> mNames;
  std::vector<std::unique_ptr<InitializerRegistrar>> mRegistrars;
  logging::LogSink mPreviousSink;
};

using Events = std::vector<std::string>;

TEST_F(InitializerRegistrarTest, DependenciesFirstThenRegistrationOrderEachOnce) {
  Add("order.C", {"order.B"});
  Add("order.B", {"order.A", "order.NotRegistered", "order.nothing::*"});
  Add("order.D");
  Add("order.A");
  EXPECT_TRUE(RunInitializers());
  EXPECT_EQ(TakeEvents(), (Events{"init:order.A", "init:order.B", "init:order.C", "init:order.D"}));
  EXPECT_TRUE(RunInitializers());
  EXPECT_TRUE(TakeEvents().empty());

  // Later registrations (a module loaded late) run on the next call, alone.
  Add("order.E", {"order.A"});
  EXPECT_TRUE(RunInitializers());
  EXPECT_EQ(TakeEvents(), Events{"init:order.E"});
}

TEST_F(InitializerRegistrarTest, PatternsMatchEveryNameWithThePrefix) {
  Add("pattern.user", {"pattern.ops::*"});
  Add("pattern.other");
  Add("pattern.ops::Add");
  Add("pattern.opsX");                          // does not start with "pattern.ops::"
  Add("pattern.ops::Mul", {"pattern.ops::*"});  // a pattern does not match its owner
  EXPECT_TRUE(RunInitializers());
  EXPECT_EQ(TakeEvents(), (Events{"init:pattern.ops::Add", "init:pattern.ops::Mul", "init:pattern.user",
                                  "init:pattern.other", "init:pattern.opsX"}));
}

TEST_F(InitializerRegistrarTest, FailuresHoldBackTheirDependents) {
  Add("fail.bad", {}, false);
  Add("fail.dependent", {"fail.bad"});
  Add("fail.transitive", {"fail.dependent"});
  Add("fail.independent");
  mRegistrars.push_back(std::make_unique<InitializerRegistrar>(
      "fail.throws", kInitializerDefault,
      []() -> bool { throw kiv_exception("cannot open device", MakeErrorCode(0x10, 7)); }));
  EXPECT_FALSE(RunInitializers());
  EXPECT_EQ(TakeEvents(), (Events{"init:fail.bad", "init:fail.independent"}));
  bool loggedThrow = false;
  for (const std::string& line : Logged()) {
    loggedThrow |= line.find("Exception in initializer fail.throws") != std::string::npos &&
                   line.find("cannot open device") != std::string::npos;
  }
  EXPECT_TRUE(loggedThrow);

  // Failed initializers are not retried, and count until they are unregistered.
  EXPECT_FALSE(RunInitializers());
  EXPECT_TRUE(TakeEvents().empty());
  mRegistrars.clear();
  EXPECT_TRUE(RunInitializers());
}

TEST_F(InitializerRegistrarTest, OptionalFailureDoesNotFailTheRun) {
  Add("optional.bad", {}, false, kInitializerOptional);
  Add("optional.user", {"optional.bad"});
  EXPECT_TRUE(RunInitializers());
  EXPECT_EQ(TakeEvents(), (Events{"init:optional.bad", "init:optional.user"}));
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
  std::unique_ptr<InitializerRegistrar> late;
  mRegistrars.push_back(
      std::make_unique<InitializerRegistrar>("late.loader", kInitializerDefault, [this, &late] {
        Note("init:late.loader");
        late = std::make_unique<InitializerRegistrar>("late.module", kInitializerDefault, [this] {
          Note("init:late.module");
          return RunInitializers();  // nested calls return at once
        });
        return true;
      }));
  EXPECT_TRUE(RunInitializers());
  EXPECT_EQ(TakeEvents(), (Events{"init:late.loader", "init:late.module"}));
  late.reset();
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
  // Everything is pending again, the failed one included.
  EXPECT_FALSE(RunInitializers());
  EXPECT_EQ(TakeEvents(), (Events{"init:down.first", "init:down.second", "init:down.failed"}));
}

TEST_F(InitializerRegistrarTest, ConcurrentRunsRunEachInitializerOnce) {
  std::atomic<int> runs{0};
  for (int i = 0; i < 20; ++i) {
    mRegistrars.push_back(std::make_unique<InitializerRegistrar>("concurrent", kInitializerDefault, [&runs] {
      ++runs;
      return true;
    }));
  }
  std::vector<std::thread> threads;
  std::atomic<int> succeeded{0};
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&succeeded] { succeeded += RunInitializers() ? 1 : 0; });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(runs.load(), 20);
  EXPECT_EQ(succeeded.load(), 4);
}

}  // namespace
}  // namespace kivcore::config
