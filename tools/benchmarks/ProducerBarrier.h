#pragma once
// Google Benchmark averages the producers' timers, each stopped when its own loop ends; producers that
// finish early would make a run look shorter than it was. So each producer waits here for the others.

#include <benchmark/benchmark.h>

#include <atomic>

namespace kivml::benchmarks {

class ProducerBarrier {
 public:
  // Called by thread 0 before its loop: nobody counts before the benchmark's start barrier.
  void Reset() noexcept { mFinished = 0; }

  // Counts this producer as finished; with `wait`, returns once every producer has.
  void FinishTogether(const benchmark::State& state, bool wait) {
    if (mFinished.fetch_add(1) + 1 == state.threads()) {
      mFinished.notify_all();
      return;
    }
    for (int finished = mFinished.load(); wait && finished < state.threads(); finished = mFinished.load()) {
      mFinished.wait(finished);
    }
  }

 private:
  std::atomic<int> mFinished{0};
};

}  // namespace kivml::benchmarks
