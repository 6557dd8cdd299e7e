#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <thread>
#include <vector>

#include "ThreadTestSupport.h"
#include "kivcore/threads/CallAsync.h"
#include "kivcore/threads/Gate.h"
#include "kivcore/threads/Latch.h"
#include "kivcore/threads/QueueOnlyOnce.h"

namespace kivcore::threads {
namespace {

using namespace testing;

std::shared_ptr<AsyncThreadedExecutor> MakeExecutor(int threads) {
  return CreateAsyncThreadedExecutor("once", threads, ThreadPriority::kNormal, {}, {}, ThreadAttributes{});
}

// Returns once everything already queued on a single-worker executor has run.
void Drain(const std::shared_ptr<AsyncThreadedExecutor>& executor) {
  std::promise<void> drained;
  ASSERT_TRUE(CallAsync(
      executor, [&drained] { drained.set_value(); }, -1000));
  ASSERT_EQ(drained.get_future().wait_for(kPatience), std::future_status::ready);
}

TEST(QueueOnlyOnceTest, TriggersWhileQueuedFoldButATriggerDuringARunCausesExactlyOneMore) {
  auto executor = MakeExecutor(1);
  executor->Pause();
  kivcore::threads::Latch firstRunStarted(1);
  Gate releaseFirstRun(false);
  int published = 0;  // written before Trigger, read by the run: Trigger must order the two
  std::vector<int> seen;
  auto once = QueueOnlyOnce::Create(
      [&] {
        seen.push_back(published);
        if (seen.size() == 1) {
          firstRunStarted.CountDown();
          EXPECT_TRUE(releaseFirstRun.PassThroughFor(kPatience));
        }
      },
      executor, 0, 0);
  for (int i = 1; i <= 100; ++i) {
    published = i;
    EXPECT_TRUE(once->Trigger());
  }
  executor->Resume();
  firstRunStarted.Wait();
  published = 200;
  EXPECT_TRUE(once->Trigger());  // during the run: must not be lost
  EXPECT_TRUE(once->Trigger());  // folds into that one extra run
  releaseFirstRun.Open();
  Drain(executor);  // at a lower priority than the extra run, so it comes after that run
  EXPECT_EQ(seen, (std::vector<int>{100, 200}));
}

TEST(QueueOnlyOnceTest, RunsNeverOverlapOnAWideExecutorAndTheLastTriggerIsAlwaysSeen) {
  auto executor = MakeExecutor(4);
  constexpr int kTriggerers = 4;
  constexpr int kPerTriggerer = 2000;
  std::atomic<int> progress[kTriggerers] = {};
  std::atomic<int> lastSeenTotal{0};
  InFlightCounter inFlight;
  auto once = QueueOnlyOnce::Create(
      [&] {
        inFlight.Enter();
        int total = 0;
        for (auto& value : progress) {
          total += value.load(std::memory_order_relaxed);
        }
        lastSeenTotal = total;
        inFlight.Leave();
      },
      executor, 0, 0);
  std::vector<std::thread> triggerers;
  for (int t = 0; t < kTriggerers; ++t) {
    triggerers.emplace_back([&, t] {
      for (int i = 1; i <= kPerTriggerer; ++i) {
        progress[t].store(i, std::memory_order_relaxed);
        EXPECT_TRUE(once->Trigger());
      }
    });
  }
  for (auto& thread : triggerers) {
    thread.join();
  }
  // Relaxed stores: only the ordering Trigger provides lets the final run see all of them.
  EXPECT_TRUE(WaitFor([&] { return lastSeenTotal.load() == kTriggerers * kPerTriggerer; }))
      << "a trigger was lost: the last run saw " << lastSeenTotal.load();
  executor->Shutdown();  // joins a run that may still be going, before the counters it reads go away
  EXPECT_EQ(inFlight.most.load(), 1);
}

TEST(QueueOnlyOnceTest, QueuedRunKeepsItAliveAndADroppedRunReturnsItToIdle) {
  auto executor = MakeExecutor(1);
  executor->Pause();
  std::atomic<int> runs{0};
  std::weak_ptr<QueueOnlyOnce> watcher;
  {
    auto once = QueueOnlyOnce::Create([&runs] { ++runs; }, executor, 0, 0);
    watcher = once;
    ASSERT_TRUE(once->Trigger());
  }
  EXPECT_FALSE(watcher.expired()) << "the queued run did not keep it alive";
  executor->Resume();
  Drain(executor);
  EXPECT_EQ(runs.load(), 1);
  EXPECT_TRUE(watcher.expired());

  executor->Pause();
  auto once = QueueOnlyOnce::Create([&runs] { ++runs; }, executor, 0, 0);
  EXPECT_TRUE(once->Trigger());  // queued on the paused executor...
  executor->Shutdown();          // ...which drops the run unrun
  EXPECT_FALSE(once->Trigger()) << "stuck as queued after its run was dropped";
  EXPECT_FALSE(once->Trigger()) << "a refused trigger did not return it to idle";
  EXPECT_EQ(runs.load(), 1);
  EXPECT_EQ(once.use_count(), 1);
}

}  // namespace
}  // namespace kivcore::threads
