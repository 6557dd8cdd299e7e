#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <string>
#include <vector>

#include "ThreadTestSupport.h"
#include "kivcore/config/ResultCodes.h"
#include "kivcore/config/kiv_exception.h"
#include "kivcore/threads/CallAsync.h"
#include "kivcore/threads/Gate.h"

namespace kivcore::threads {
namespace {

using namespace testing;

thread_local std::string tTag;  // set by onThreadStart: the executor this worker belongs to

std::shared_ptr<AsyncThreadedExecutor> MakeExecutor(const std::string& name, int threads,
                                                    boost::function<void()> onEnd = {}) {
  return CreateAsyncThreadedExecutor(
      name, threads, ThreadPriority::kNormal, [name] { tTag = name; }, onEnd, ThreadAttributes{256 * 1024});
}

// Runs `probe` on `executor` and returns its answer.
template <class T>
T AskOn(const std::shared_ptr<async::AsyncExecutor>& executor, const std::function<T()>& probe) {
  std::promise<T> answer;
  EXPECT_TRUE(CallAsync(executor, [&] { answer.set_value(probe()); }));
  return answer.get_future().get();
}

TEST(AsyncThreadedExecutorTest, TasksRunOnTheWorkersOfTheExecutorTheyWerePostedTo) {
  std::atomic<int> ended{0};
  auto first = MakeExecutor("first", 2, [&ended] { ++ended; });
  auto second = MakeExecutor("second", 1);
  const std::function<std::string()> where = [&] {
    return tTag + (first->IsCurrentThreadWorker() ? "+" : "-");
  };
  EXPECT_EQ(AskOn(first, where), "first+");
  EXPECT_EQ(AskOn(second, where), "second-");
  EXPECT_EQ(AskOn(async::GetDefaultExecutor(), where), "-");
  EXPECT_FALSE(first->IsCurrentThreadWorker());
  first->Shutdown();
  EXPECT_EQ(ended.load(), 2);  // onThreadEnd ran on every worker before Shutdown returned
}

TEST(AsyncThreadedExecutorTest, PausedExecutorRunsNothingThenStartsByPriorityAndFifoWithinOne) {
  auto executor = MakeExecutor("order", 1);
  executor->Pause();
  std::vector<int> order;  // written by the single worker only
  std::atomic<int> ran{0};
  auto record = [&](int index) { order.push_back(index), ++ran; };
  const int priorities[] = {0, 5, 1, 5, 0, -2};
  for (int i = 0; i < 6; ++i) {
    ASSERT_TRUE(CallAsync(
        executor, [&record, i] { record(i); }, priorities[i]));
  }
  std::this_thread::sleep_for(30ms);
  EXPECT_EQ(ran.load(), 0) << "a paused executor started a task";
  executor->Resume();
  ASSERT_TRUE(WaitFor([&] { return ran.load() == 6; }));
  EXPECT_EQ(order, (std::vector<int>{1, 3, 2, 0, 4, 5}));
}

TEST(AsyncThreadedExecutorTest, ShutdownDestroysQueuedTasksUnrunAndRefusesLaterOnes) {
  auto executor = MakeExecutor("shutdown", 2);
  executor->Pause();
  auto queued = std::make_shared<int>(0);
  ASSERT_TRUE(CallAsync(executor, [queued] { ++*queued; }));
  executor->Shutdown();
  EXPECT_TRUE(executor->IsTerminated());
  EXPECT_EQ(queued.use_count(), 1) << "a queued task outlived Shutdown";
  EXPECT_EQ(*queued, 0);
  EXPECT_FALSE(CallAsync(executor, [queued] {}));
  EXPECT_FALSE(CallAsync(std::static_pointer_cast<async::AsyncExecutor>(executor), [queued] {}));
  EXPECT_EQ(queued.use_count(), 1) << "a refused task was kept";
  EXPECT_FALSE(CallAsync(std::shared_ptr<AsyncThreadedSubExecutor>(), [] {}));
}

TEST(AsyncThreadedExecutorTest, RacingPostsAndShutdownRunEachTaskAtMostOnceAndDestroyTheRest) {
  struct Tracker {
    std::atomic<int>& unrun;
    bool ran = false;
    ~Tracker() { unrun += ran ? 0 : 1; }
  };
  auto executor = MakeExecutor("stress", 3);
  std::atomic<int> ran{0}, unrun{0}, accepted{0}, ranTwice{0};
  std::vector<std::thread> posters;
  for (int t = 0; t < 3; ++t) {
    posters.emplace_back([&] {
      for (int i = 0; i < 2000; ++i) {
        auto task = [tracker = std::shared_ptr<Tracker>(new Tracker{unrun}), &ran, &ranTwice] {
          ranTwice += tracker->ran ? 1 : 0;
          tracker->ran = true;
          ++ran;
        };
        accepted += executor->Post(std::move(task), i % 4) ? 1 : 0;
      }
    });
  }
  std::this_thread::sleep_for(2ms);
  executor->Shutdown();
  for (auto& poster : posters) {
    poster.join();
  }
  EXPECT_EQ(ranTwice.load(), 0);
  EXPECT_LE(ran.load(), accepted.load());
  EXPECT_EQ(ran.load() + unrun.load(), 6000) << "a task was neither run nor destroyed";
}

TEST(AsyncThreadedExecutorTest, ShutdownOrDestructionFromItsOwnWorkerDoesNotDeadlock) {
  std::atomic<int> ended{0};
  auto executor = MakeExecutor("self", 3, [&ended] { ++ended; });
  EXPECT_TRUE(AskOn<bool>(executor, [&] {
    executor->Shutdown();
    return executor->IsTerminated();
  }));
  executor->Shutdown();  // from outside: also joins the worker that shut it down
  EXPECT_EQ(ended.load(), 3);

  // The last reference dropped inside a task: the destructor runs on the worker, which detaches itself.
  auto owner = std::make_shared<std::shared_ptr<AsyncThreadedExecutor>>(
      MakeExecutor("doomed", 2, [&ended] { ++ended; }));
  Gate posted(false);
  ASSERT_TRUE(CallAsync(*owner, [owner, &posted] {
    EXPECT_TRUE(posted.PassThroughFor(kPatience));
    owner->reset();
  }));
  posted.Open();  // only now is the task's reference the last one
  EXPECT_TRUE(WaitFor([&] { return ended.load() == 5; })) << "workers of a self-destroyed executor hung";
}

TEST(AsyncThreadedExecutorTest, ExceptionEscapingATaskIsLoggedAndTheWorkerGoesOn) {
  LogCapture log;
  auto executor = MakeExecutor("thrower", 1);
  ASSERT_TRUE(CallAsync(executor, [] { throw config::kiv_exception("boom", config::eInvalidArgument); }));
  ASSERT_TRUE(CallAsync(executor, [] { throw 42; }));
  EXPECT_TRUE(AskOn<bool>(executor, [] { return true; }));
  EXPECT_NE(log.Text().find("thrower"), std::string::npos) << log.Text();
  EXPECT_NE(log.Text().find("boom"), std::string::npos) << log.Text();
}

TEST(DefaultExecutorsTest, ProcessWidePoolsAreDistinctSingletonsAndTheGreedySubUsesTheCpuPool) {
  auto cpu = GetCPUBoundExecutor();
  auto defaults = async::GetDefaultExecutor();
  EXPECT_EQ(cpu, GetCPUBoundExecutor());
  EXPECT_EQ(defaults, async::GetDefaultExecutor());
  EXPECT_NE(std::static_pointer_cast<async::AsyncExecutor>(cpu), defaults);
  EXPECT_GE(std::static_pointer_cast<AsyncThreadedExecutor>(defaults)->GetThreadCount(), 2);
  const std::function<bool()> onCpu = [&] { return cpu->IsCurrentThreadWorker(); };
  EXPECT_TRUE(AskOn(cpu, onCpu));
  EXPECT_FALSE(AskOn(defaults, onCpu));
  EXPECT_TRUE(AskOn(CreateGreedySubExecutor(), onCpu));
}

}  // namespace
}  // namespace kivcore::threads
