// Blocking waits: wake-ups across threads, deadlines, and the logged time-out.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "kivcore/async/Future.h"
#include "kivcore/logging/Logging.h"
#include "kivcore/threads/Latch.h"

namespace kivcore::async {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

TEST(WaitTest, EveryWaiterWakesWhenItsFutureCompletes) {
  constexpr int kStates = 300;  // more than the wait slots, so waiters of different states share them
  constexpr int kWaiters = 4;
  std::vector<Promise<int>> promises;
  std::vector<Future<int>> futures;
  for (int i = 0; i < kStates; ++i) {
    futures.push_back(promises.emplace_back(nullptr).GetFuture());
  }
  std::atomic<int> sum{0};
  kivcore::threads::Latch started(kWaiters + 1);
  std::vector<std::thread> waiters;
  for (int w = 0; w < kWaiters; ++w) {
    waiters.emplace_back([&, w] {
      started.ArriveAndWait();
      for (int i = 0; i < kStates; ++i) {
        const Future<int>& future = futures[(i * (w + 1)) % kStates];
        while (w % 2 == 1 && !future.WaitFor(50us)) {
        }
        future.Wait();
        sum += future.Get();
      }
    });
  }
  started.ArriveAndWait();
  std::this_thread::sleep_for(1ms);  // let the waiters park; completing in reverse keeps them parking
  for (int i = kStates - 1; i >= 0; --i) {
    promises[i].SetValue(1);
  }
  for (std::thread& waiter : waiters) {
    waiter.join();
  }
  EXPECT_EQ(sum, kStates * kWaiters);
}

TEST(WaitTest, DeadlinesAreHonouredAndTimeOutsLoggedOnlyWhenAsked) {
  std::mutex mutex;
  std::vector<std::string> lines;
  logging::LogSink previous = logging::SetLogSink([&](const std::string& line) {
    std::lock_guard<std::mutex> lock(mutex);
    lines.push_back(line);
  });
  Promise<void> promise(nullptr);
  const UntypedFuture future = promise.GetFuture();
  const Clock::time_point deadline = Clock::now() + 10ms;
  EXPECT_FALSE(WaitForUntypedUntil(future, deadline, false));
  EXPECT_GE(Clock::now(), deadline);
  EXPECT_FALSE(WaitForUntypedUntil(future, Clock::now() + 1ms, true));
  EXPECT_FALSE(WaitForUntypedUntil(UntypedFuture(), Clock::now() + 1h, false));  // no state: at once
  std::thread completer([&] {
    std::this_thread::sleep_for(5ms);
    promise.SetValue();
  });
  EXPECT_TRUE(WaitForUntypedUntil(future, Clock::now() + 60s, true));
  completer.join();
  const Future<void> typed = promise.GetFuture();
  EXPECT_TRUE(typed.WaitFor(std::chrono::hours::max()) && typed.WaitFor(std::chrono::nanoseconds::max()));
  logging::SetLogSink(previous);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_NE(lines[0].find("timed out"), std::string::npos);
}

}  // namespace
}  // namespace kivcore::async
