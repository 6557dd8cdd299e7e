#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "ThreadTestSupport.h"
#include "kivcore/threads/CallAsync.h"

namespace kivcore::threads {
namespace {

using namespace testing;

std::shared_ptr<AsyncThreadedExecutor> MakeParent(int threads) {
  return CreateAsyncThreadedExecutor("parent", threads, ThreadPriority::kNormal, {}, {}, ThreadAttributes{});
}

TEST(AsyncThreadedSubExecutorTest, NeverRunsMoreThanItsWidthAndWidthOneKeepsPostingOrder) {
  auto parent = MakeParent(4);
  for (int width : {1, 2}) {
    auto sub = CreateSubExecutor(parent, width);
    InFlightCounter inFlight;
    std::vector<int> order;  // unguarded: with width 1 the queue itself must order the tasks (TSan checks)
    std::atomic<int> ran{0};
    auto post = [&](int first) {
      for (int i = first; i < 4000; i += 2) {
        EXPECT_TRUE(CallAsync(sub, [&, i] {
          inFlight.Enter();
          if (width == 1) {
            order.push_back(i);
          }
          std::this_thread::yield();
          inFlight.Leave();
          ++ran;
        }));
      }
    };
    std::thread odd(post, 1);
    post(0);
    odd.join();
    ASSERT_TRUE(WaitFor([&] { return ran.load() == 4000; }));
    EXPECT_LE(inFlight.most.load(), width);
    // Each poster's tasks must start in that poster's order.
    int lastEven = -2, lastOdd = -1;
    for (int i : order) {
      int& last = i % 2 == 0 ? lastEven : lastOdd;
      ASSERT_GT(i, last);
      last = i;
    }
  }
}

TEST(AsyncThreadedSubExecutorTest, PausedSubRunsNothingUntilResumedThenHonoursPriority) {
  auto parent = MakeParent(2);
  auto serial = CreateSubExecutor(parent, 1);
  serial->Pause();
  std::vector<int> order;
  std::atomic<int> ran{0};
  auto record = [&](int priority) { order.push_back(priority), ++ran; };
  for (int priority : {1, 7, 3, 7}) {
    ASSERT_TRUE(CallAsync(
        serial, [&record, priority] { record(priority); }, priority));
  }
  std::this_thread::sleep_for(30ms);
  EXPECT_EQ(ran.load(), 0) << "a paused sub-executor started a task";
  serial->Resume();
  ASSERT_TRUE(WaitFor([&] { return ran.load() == 4; }));
  EXPECT_EQ(order, (std::vector<int>{7, 7, 3, 1}));
}

TEST(AsyncThreadedSubExecutorTest, ParentShutdownOrRefusalTerminatesItAndReleasesQueuedWork) {
  // The slot sits queued on a paused parent with a second task behind it in the sub-executor; shutting
  // the parent down destroys the slot unrun, which must release both (promises in them would break).
  auto parent = MakeParent(1);
  parent->Pause();
  auto sub = CreateSubExecutor(parent, 1);
  auto first = std::make_shared<int>(1);
  auto second = std::make_shared<int>(2);
  ASSERT_TRUE(CallAsync(sub, [first] {}));
  ASSERT_TRUE(CallAsync(sub, [second] {}));
  parent->Shutdown();
  EXPECT_TRUE(sub->IsTerminated());
  EXPECT_EQ(first.use_count() + second.use_count(), 2);

  auto late = CreateSubExecutor(parent, 1);  // the parent refuses its very first slot
  EXPECT_FALSE(CallAsync(late, [first] {}));
  EXPECT_TRUE(late->IsTerminated());
  EXPECT_EQ(first.use_count(), 1);
}

TEST(AsyncThreadedSubExecutorTest, KeepsItselfAliveWhileItsWorkIsPendingAndSurvivesThrowingTasks) {
  LogCapture log;
  auto parent = MakeParent(2);
  std::atomic<int> ran{0};
  std::weak_ptr<AsyncThreadedSubExecutor> watcher;
  {
    auto sub = CreateSubExecutor(parent, 1);
    watcher = sub;
    ASSERT_TRUE(CallAsync(sub, [] { throw std::runtime_error("sub boom"); }));
    for (int i = 0; i < 200; ++i) {
      ASSERT_TRUE(CallAsync(sub, [&ran] { ++ran; }));
    }
  }
  ASSERT_TRUE(WaitFor([&] { return ran.load() == 200; })) << "work was lost when the owner let go";
  EXPECT_TRUE(WaitFor([&] { return watcher.expired(); })) << "the sub-executor outlived its work";
  EXPECT_NE(log.Text().find("AsyncThreadedSubExecutor on parent"), std::string::npos) << log.Text();
}

}  // namespace
}  // namespace kivcore::threads
