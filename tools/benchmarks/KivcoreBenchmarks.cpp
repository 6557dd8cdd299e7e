// Costs of the core-runtime primitives that every request passes through: a promise/future pair, a
// continuation hop, a serial sub-executor post, a fold-once trigger, the evaluator mutex and the
// recycling allocator. Compare rows within one run; absolute times depend on the machine's load.
#include <benchmark/benchmark.h>

#include <atomic>
#include <cstdlib>
#include <vector>

#include "kivcore/allocator/MemoryRecycler.h"
#include "kivcore/async/Future.h"
#include "kivcore/async/Promise.h"
#include "kivcore/threads/AsyncThreadedExecutor.h"
#include "kivcore/threads/AsyncThreadedSubExecutor.h"
#include "kivcore/threads/CallAsync.h"
#include "kivcore/threads/Gate.h"
#include "kivcore/threads/QueueOnlyOnce.h"
#include "kivcore/threads/RecursiveMutex.h"
#include "kivcore/threads/ScopedLock.h"

namespace {

using namespace kivcore;

void PromiseFutureRoundTrip(benchmark::State& state) {
  auto executor = async::GetDefaultExecutor();
  for (auto _ : state) {
    async::Promise<std::vector<int>> promise(executor);
    auto future = promise.GetFuture();
    promise.SetValue(std::vector<int>{1});
    benchmark::DoNotOptimize(future.Get().size());
  }
}
BENCHMARK(PromiseFutureRoundTrip);

void ContinuationHop(benchmark::State& state) {
  auto executor = async::GetDefaultExecutor();
  for (auto _ : state) {
    async::Promise<int> promise(executor);
    auto next = promise.GetFuture().Then([](const async::Future<int>& f) { return f.Get() + 1; });
    promise.SetValue(1);
    next.Wait();
    benchmark::DoNotOptimize(next.Get());
  }
}
BENCHMARK(ContinuationHop)->UseRealTime();

void SerialSubExecutorPost(benchmark::State& state) {
  auto serial = threads::CreateSubExecutor(threads::GetCPUBoundExecutor(), 1);
  constexpr int kBatch = 256;
  for (auto _ : state) {
    std::atomic<int> done{0};
    threads::Gate finished(false);
    for (int i = 0; i < kBatch; ++i) {
      threads::CallAsync(serial, [&] {
        if (done.fetch_add(1) + 1 == kBatch) {
          finished.Open();
        }
      });
    }
    finished.PassThroughFor(std::chrono::seconds(10));
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
}
BENCHMARK(SerialSubExecutorPost)->UseRealTime();

void QueueOnlyOnceBurst(benchmark::State& state) {
  auto worker =
      threads::CreateAsyncThreadedExecutor("bench", 1, threads::ThreadPriority::kNormal, {}, {}, {});
  std::atomic<int> runs{0};
  auto trigger = threads::QueueOnlyOnce::Create([&] { runs.fetch_add(1); }, worker, 0, 0);
  for (auto _ : state) {
    benchmark::DoNotOptimize(trigger->Trigger());
  }
  state.counters["runs"] = runs.load();
}
BENCHMARK(QueueOnlyOnceBurst)->Threads(1)->Threads(2);

void RecursiveMutexUncontended(benchmark::State& state) {
  static const threads::RecursiveMutex mutex(nullptr);
  for (auto _ : state) {
    threads::ScopedLock lock(mutex, "bench::RecursiveMutexUncontended");
  }
}
BENCHMARK(RecursiveMutexUncontended);

void RecyclerAllocate(benchmark::State& state) {
  const auto bytes = static_cast<size_t>(state.range(0));
  for (auto _ : state) {
    size_t actual = 0;
    void* p = allocator::MemoryRecycler::Allocate(bytes, actual);
    benchmark::DoNotOptimize(p);
    allocator::MemoryRecycler::Recycle(p, bytes);
  }
}
BENCHMARK(RecyclerAllocate)->Arg(64)->Arg(4096)->Arg(1 << 20);

void MallocAllocate(benchmark::State& state) {
  const auto bytes = static_cast<size_t>(state.range(0));
  for (auto _ : state) {
    void* p = std::malloc(bytes);
    benchmark::DoNotOptimize(p);
    std::free(p);
  }
}
BENCHMARK(MallocAllocate)->Arg(64)->Arg(4096)->Arg(1 << 20);

}  // namespace

BENCHMARK_MAIN();
