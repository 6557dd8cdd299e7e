#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "ClosedLoop.h"
#include "LatencyStats.h"
#include "ProgressBar.h"

namespace kivml::cli {
namespace {

TEST(KivmlToolLatencyStats, PercentilesAreNearestRankOverSortedSamples) {
  std::vector<double> seconds;
  for (int ms = 100; ms >= 1; --ms) {
    seconds.push_back(ms / 1e3);
  }
  const LatencyStats stats(std::move(seconds));
  EXPECT_EQ(stats.Count(), 100U);
  EXPECT_DOUBLE_EQ(stats.PercentileMs(50), 50.0);
  EXPECT_DOUBLE_EQ(stats.PercentileMs(95), 95.0);
  EXPECT_DOUBLE_EQ(stats.PercentileMs(99), 99.0);
  EXPECT_DOUBLE_EQ(stats.PercentileMs(100), 100.0);
  EXPECT_DOUBLE_EQ(stats.PercentileMs(0), 1.0);
  EXPECT_NEAR(stats.MeanMs(), 50.5, 1e-9);
}

TEST(KivmlToolLatencyStats, FewSamplesNeverReadOutOfRange) {
  const LatencyStats one({0.002});
  EXPECT_DOUBLE_EQ(one.PercentileMs(50), 2.0);
  EXPECT_DOUBLE_EQ(one.PercentileMs(99), 2.0);
  const LatencyStats three({0.003, 0.001, 0.002});
  EXPECT_DOUBLE_EQ(three.PercentileMs(50), 2.0);  // rank ceil(1.5) = 2
  EXPECT_DOUBLE_EQ(three.PercentileMs(99), 3.0);
  const LatencyStats none;
  EXPECT_EQ(none.Count(), 0U);
  EXPECT_DOUBLE_EQ(none.PercentileMs(50), 0.0);
  EXPECT_DOUBLE_EQ(none.MeanMs(), 0.0);
}

TEST(KivmlToolClosedLoop, MakesJustEnoughCallsForTheRequests) {
  ProgressBar progress;
  for (const size_t perCall : {1U, 4U, 10U}) {
    std::atomic<size_t> calls{0};
    const LoopResult result =
        ClosedLoop(3, progress).Run("test", 10, perCall, [&](size_t /*client*/) { calls.fetch_add(1); });
    const size_t expectedCalls = (10 + perCall - 1) / perCall;
    EXPECT_EQ(calls.load(), expectedCalls) << perCall;
    EXPECT_EQ(result.calls, expectedCalls);
    EXPECT_EQ(result.requests, expectedCalls * perCall);
    EXPECT_EQ(result.latency.Count(), expectedCalls);
    EXPECT_GT(result.RequestsPerSecond(), 0.0);
  }
}

TEST(KivmlToolClosedLoop, EachClientWaitsForItsCallBeforeTheNext) {
  ProgressBar progress;
  std::mutex mutex;
  std::set<size_t> inFlight;
  std::set<size_t> seen;
  bool overlapped = false;
  ClosedLoop(4, progress).Run("test", 200, 1, [&](size_t client) {
    {
      const std::lock_guard lock(mutex);
      overlapped |= !inFlight.insert(client).second;
      seen.insert(client);
    }
    std::this_thread::yield();
    const std::lock_guard lock(mutex);
    inFlight.erase(client);
  });
  EXPECT_FALSE(overlapped);
  EXPECT_LE(seen.size(), 4U);
  EXPECT_LT(*seen.rbegin(), 4U);
}

TEST(KivmlToolClosedLoop, AFailedCallStopsTheLoopAndReachesTheCaller) {
  ProgressBar progress;
  for (const size_t clients : {1U, 3U}) {
    std::atomic<size_t> calls{0};
    const ClosedLoop loop(clients, progress);
    EXPECT_THROW(loop.Run("test", 1000, 1,
                          [&](size_t /*client*/) {
                            if (calls.fetch_add(1) == 5) {
                              throw std::runtime_error("refused");
                            }
                          }),
                 std::runtime_error);
    if (clients == 1) {
      EXPECT_EQ(calls.load(), 6U);  // nothing after the failure
    }
  }
}

TEST(KivmlToolProgressBar, LinesFitTheTerminalWidth) {
  EXPECT_EQ(ProgressBar::Layout("unbatched conc 1 kivml 1/4", 250, 1000, 80),
            "unbatched conc 1 kivml 1/4 [#######.......................] 250/1000");
  // The longest kind of label: first the bar narrows, then it goes, then the label is cut.
  const std::string label = "batched conc 4096 kivml warm-up";
  EXPECT_EQ(ProgressBar::Layout(label, 500, 1000, 60), label + " [########........] 500/1000");
  EXPECT_EQ(ProgressBar::Layout(label, 500, 1000, 41), label + " 500/1000");
  EXPECT_EQ(ProgressBar::Layout(label, 500, 1000, 30), "batched conc 4096... 500/1000");
  EXPECT_EQ(ProgressBar::Layout(label, 500, 1000, 10), "batched c");
  EXPECT_EQ(ProgressBar::Layout(label, 500, 1000, 0), "");
  for (size_t columns = 0; columns <= 120; ++columns) {
    for (const size_t done : {0U, 1U, 999U, 1000U}) {
      const std::string line = ProgressBar::Layout(label, done, 1000, columns);
      EXPECT_LT(line.size(), std::max<size_t>(columns, 1)) << columns << ": " << line;
    }
  }
}

}  // namespace
}  // namespace kivml::cli
