// Many threads completing, attaching, waiting and dropping at once: every continuation runs exactly once
// and every completion has exactly one winner. Meant to be run under ThreadSanitizer too.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <stdexcept>
#include <thread>
#include <vector>

#include "AsyncTestSupport.h"
#include "kivcore/async/Future.h"
#include "kivcore/threads/Latch.h"

namespace kivcore::async {
namespace {

using testing::MakeThreadExecutor;

TEST(StressTest, ConcurrentCompletionsContinuationsAndWaitsEachHappenExactlyOnce) {
  // Small batches behind a barrier, walked in opposite directions, so that completing, attaching, waiting
  // and dropping keep colliding on the same futures instead of one thread running ahead.
  constexpr int kRounds = 60;
  constexpr int kBatch = 24;
  constexpr int kCount = kRounds * kBatch;
  constexpr int kAttachers = 2;
  auto executors = std::vector<std::shared_ptr<threads::AsyncThreadedExecutor>>{MakeThreadExecutor(2),
                                                                                MakeThreadExecutor(2)};
  std::vector<Promise<int>> promises;
  std::vector<Future<int>> futures;
  for (int i = 0; i < kCount; ++i) {
    promises.emplace_back(executors[i % 2]);
    futures.push_back(promises.back().GetFuture());
  }
  std::vector<std::atomic<int>> thenRuns(kCount);
  std::vector<std::atomic<int>> callbackRuns(kCount);
  std::vector<std::atomic<int>> winner(kCount);  // 1: value, 2: exception
  std::atomic<int> callbacksLeft{kCount * kAttachers};
  std::vector<std::vector<Future<int>>> results(kAttachers, std::vector<Future<int>>(kCount));
  testing::CyclicBarrier sync(2 + kAttachers + 2);
  // Runs visit(i) over each batch after the barrier, forwards or backwards.
  auto inBatches = [&](bool backwards, const std::function<void(int)>& visit) {
    for (int round = 0; round < kRounds; ++round) {
      sync.ArriveAndWait();
      for (int k = 0; k < kBatch; ++k) {
        visit(round * kBatch + (backwards ? kBatch - 1 - k : k));
      }
    }
  };
  std::vector<std::thread> threads;
  for (int kind = 1; kind <= 2; ++kind) {  // two producers race to complete every promise
    threads.emplace_back([&, kind] {
      inBatches(kind == 1, [&](int i) {
        const bool won =
            kind == 1 ? promises[i].SetValue(i) : promises[i].SetException(std::runtime_error("lost"));
        if (won) {
          EXPECT_EQ(winner[i].exchange(kind), 0);
        }
      });
    });
  }
  for (int a = 0; a < kAttachers; ++a) {
    threads.emplace_back([&, a] {
      inBatches(a == 0, [&](int i) {
        results[a][i] = futures[i].Then(executors[a], [&thenRuns, i](const Future<int>& f) {
          ++thenRuns[i];
          return f.HasValue() ? f.Get() : -1;
        });
        UntypedFuture(futures[i]).OnComplete(executors[1 - a], [&callbackRuns, &callbacksLeft, i] {
          ++callbackRuns[i];
          --callbacksLeft;
        });
      });
    });
  }
  threads.emplace_back([&] {  // waits on every future
    inBatches(false, [&](int i) {
      futures[i].Wait();
      EXPECT_TRUE(futures[i].IsReady());
    });
  });
  threads.emplace_back([&] {  // churns copies and attaches continuations whose results are dropped
    inBatches(true, [&](int i) {
      Future<int> copy = futures[i];
      (void)copy.Then([](const Future<int>& f) { return f.IsReady(); });
    });
  });
  for (std::thread& thread : threads) {
    thread.join();
  }

  for (int a = 0; a < kAttachers; ++a) {
    for (int i = 0; i < kCount; ++i) {
      ASSERT_TRUE(results[a][i].WaitFor(std::chrono::seconds(60))) << "lost continuation " << i;
      ASSERT_EQ(results[a][i].Get(), winner[i] == 1 ? i : -1) << i;
    }
  }
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (callbacksLeft > 0 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  for (int i = 0; i < kCount; ++i) {
    ASSERT_NE(winner[i], 0) << i;
    ASSERT_EQ(thenRuns[i], kAttachers) << i;
    ASSERT_EQ(callbackRuns[i], kAttachers) << i;
  }
}

TEST(StressTest, AbandoningRacesWithCompletingWithoutLosingOrLeakingAnything) {
  constexpr int kCount = 2000;
  auto executor = MakeThreadExecutor(2);
  std::vector<Promise<int>> promises;
  std::vector<Future<int>> ends;
  for (int i = 0; i < kCount; ++i) {
    promises.emplace_back(executor);
    ends.push_back(promises.back().GetFuture().Then([](const Future<int>& f) { return f.Get(); }));
  }
  kivcore::threads::Latch start(2);
  std::thread dropper([&] {
    start.ArriveAndWait();
    for (int i = kCount - 2; i >= 0; i -= 2) {  // crosses the completing thread halfway
      ends[i] = Future<int>();
    }
  });
  start.ArriveAndWait();
  for (int i = 0; i < kCount; ++i) {
    const bool abandoned = promises[i].IsAbandoned();
    if (i % 2 == 1) {
      EXPECT_FALSE(abandoned);  // its end is held
      EXPECT_TRUE(promises[i].SetValue(i));
    } else {
      // Abandonment is final: once seen, completing can no longer succeed.
      EXPECT_FALSE(promises[i].SetValue(i) && abandoned);
    }
  }
  dropper.join();
  for (int i = 1; i < kCount; i += 2) {
    ASSERT_TRUE(ends[i].WaitFor(std::chrono::seconds(60))) << i;
    EXPECT_EQ(ends[i].Get(), i);
  }
  executor->Shutdown();  // queued continuations still hold their completed upstream; drop them
  for (int i = 0; i < kCount; i += 2) {
    EXPECT_TRUE(promises[i].IsAbandoned()) << i;  // nothing, not even a cycle, kept a dropped chain
  }
}

}  // namespace
}  // namespace kivcore::async
