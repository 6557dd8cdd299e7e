#pragma once
// Google Benchmark averages the producers' timers, each stopped when its own loop ends; producers that
// finish early would make a run look shorter than it was. So each producer waits here for the others.
// RunProducerWindow is the producers' loop that the benchmarks share.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <vector>

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

// One producer's timed loop over a window of requests in flight. Each iteration queues a request into the
// next slot, first collecting the request that slot still holds (the oldest in flight). The last
// iteration collects the whole window, so that every counted request is answered within the timed loop,
// then waits for the other producers. `holds(slot)` says whether a slot has a request in flight,
// `collect(slot)` waits for it and empties the slot (false when the request failed), `queue(slot)` fills it.
template <typename Slot, typename Holds, typename Collect, typename Queue>
void RunProducerWindow(benchmark::State& state, ProducerBarrier& producers, std::vector<Slot>& window,
                       Holds holds, Collect collect, Queue queue) {
  size_t next = 0;
  benchmark::IterationCount left = state.max_iterations;
  for (auto _ : state) {
    Slot& slot = window[next];
    if (holds(slot) && !collect(slot)) {
      state.SkipWithError("a request failed");
      producers.FinishTogether(state, false);
      break;
    }
    queue(slot);
    next = (next + 1) % window.size();
    if (--left == 0) {
      const bool answered = std::all_of(window.begin(), window.end(),
                                        [&](Slot& pending) { return !holds(pending) || collect(pending); });
      producers.FinishTogether(state, true);
      if (!answered) {
        state.SkipWithError("a request failed");
      }
    }
  }
}

}  // namespace kivml::benchmarks
