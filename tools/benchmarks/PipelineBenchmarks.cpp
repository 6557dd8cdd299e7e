// Request-pipeline overhead of the local evaluator: QueueFeatures, the worker's pop and batch fill, the
// hand-back through each request's future. The backend echoes its inputs at once, so every microsecond
// measured is the pipeline's (request construction included; RequestConstruction gives that part alone).
//
// Producers share one started evaluator per configuration, each keeping a window of requests in flight and
// waiting on the oldest when it is full, which keeps the worker saturated. Rows are per producer count and
// batch size (0: unbatched), with or without a registered throttle function, and prediction lanes.
// per_request is wall-clock time per answered request, all producers together; rows_per_batch (batched only)
// shows whether batches fill or go out padded. Compare rows within one run; absolute times depend on the
// machine's load.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <map>
#include <memory>
#include <tuple>
#include <utility>
#include <vector>

#include "ProducerBarrier.h"
#include "support/FakeEvaluator.h"
#include "support/FakeModel.h"

namespace {

using kivml::testing::FakeEvaluator;
using RequestFuture = kivcore::async::Future<kivml::utility::FeatureContainerVector>;

// Twice the largest batch: producers can queue the next batch while the worker answers the current one.
constexpr size_t kWindowPerProducer = 64;

// Waits for a request's answer and empties the slot; false when the request failed.
bool Collect(RequestFuture& slot) {
  slot.Wait();
  const bool answered = slot.HasValue();
  slot = RequestFuture();
  return answered;
}

struct Configuration {
  std::shared_ptr<FakeEvaluator> mEvaluator;
  // Registered when the configuration is throttled: every queue change then posts a notification.
  std::shared_ptr<FakeEvaluator::ThrottleFunction> mThrottle;
  std::shared_ptr<std::atomic<uint64_t>> mBatches = std::make_shared<std::atomic<uint64_t>>(0);
};

// Started once in main, before any benchmark runs, since starting one creates its worker threads.
// Keyed by (batch size, throttled, lanes).
using Key = std::tuple<int64_t, int64_t, int64_t>;
std::map<Key, Configuration> gConfigurations;
const std::vector<Key> kConfigurations{{8, 0, 1}, {32, 0, 1}, {0, 0, 1}, {8, 1, 1}, {0, 1, 1},
                                       {8, 0, 2}, {8, 0, 4},  {0, 0, 2}, {0, 0, 4}};

bool StartConfiguration(Configuration& configuration, int64_t batchSize, bool throttled, int64_t lanes) {
  FakeEvaluator::Behaviour behaviour;
  behaviour.record = false;
  behaviour.onPredictBatched = [batches = configuration.mBatches](const FakeEvaluator::BatchRows&) {
    batches->fetch_add(1, std::memory_order_relaxed);
    return 0;
  };
  auto evaluator = FakeEvaluator::Create(std::move(behaviour));
  evaluator->SetModel(kivml::testing::MakeScalarModel());
  if (batchSize > 0) {
    evaluator->ForceBatchSize(static_cast<size_t>(batchSize));
  }
  evaluator->SetShouldUseBatching(batchSize > 0);
  evaluator->SetPredictionLanes(static_cast<unsigned>(lanes));
  if (throttled) {
    configuration.mThrottle = std::make_shared<FakeEvaluator::ThrottleFunction>(
        [](FakeEvaluator::ThrottleOptions option) { benchmark::DoNotOptimize(option); });
    evaluator->RegisterThrottleFxn(configuration.mThrottle);
  }
  auto started = evaluator->Start();
  started.Wait();
  configuration.mEvaluator = std::move(evaluator);
  if (!started.HasValue() || started.Get() != 0) {
    return false;
  }
  // Until it has timed a few batches the fill loop waits up to seconds for latecomers: get that over with
  // full batches here rather than in the first runs. Each lane times its own batches.
  std::vector<RequestFuture> warmUp;
  for (int64_t row = 0; row < 16 * lanes * std::max<int64_t>(batchSize, 1); ++row) {
    warmUp.push_back(configuration.mEvaluator->QueueFeatures(kivml::testing::MakeRequest(0)));
  }
  return std::all_of(warmUp.begin(), warmUp.end(), [](RequestFuture& future) { return Collect(future); });
}

void RequestConstruction(benchmark::State& state) {
  int32_t value = 0;
  for (auto _ : state) {
    auto request = kivml::testing::MakeRequest(value++);
    benchmark::DoNotOptimize(request.data());
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(RequestConstruction);

kivml::benchmarks::ProducerBarrier gProducers;

void Pipeline(benchmark::State& state) {
  if (state.thread_index() == 0) {
    gProducers.Reset();
  }
  const Configuration& configuration = gConfigurations.at({state.range(0), state.range(1), state.range(2)});
  FakeEvaluator& evaluator = *configuration.mEvaluator;
  // Read outside the timed loop (before its start barrier, after its stop barrier): every producer then
  // counts about the same batches.
  const uint64_t batchesBefore = configuration.mBatches->load();
  std::vector<RequestFuture> window(kWindowPerProducer);
  int32_t value = 0;
  kivml::benchmarks::RunProducerWindow(
      state, gProducers, window, [](const RequestFuture& slot) { return slot.IsValid(); }, Collect,
      [&evaluator, &value](RequestFuture& slot) {
        slot = evaluator.QueueFeatures(kivml::testing::MakeRequest(value++));
      });
  const uint64_t batches = configuration.mBatches->load() - batchesBefore;
  state.SetItemsProcessed(state.iterations());
  state.counters["per_request"] = benchmark::Counter(
      static_cast<double>(state.iterations()), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
  if (state.range(0) > 0 && batches > 0) {
    // Summed over producers, each share of the requests over all batches adds up to rows per batch.
    state.counters["rows_per_batch"] = static_cast<double>(state.iterations()) / static_cast<double>(batches);
  }
}
void PipelineArguments(benchmark::internal::Benchmark* benchmark) {
  for (const auto& [batchSize, throttled, lanes] : kConfigurations) {
    benchmark->Args({batchSize, throttled, lanes});
  }
}
BENCHMARK(Pipeline)
    ->ArgNames({"batch", "throttled", "lanes"})
    ->Apply(PipelineArguments)
    ->ThreadRange(1, 64)
    ->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  for (const Key& key : kConfigurations) {
    const auto [batchSize, throttled, lanes] = key;
    if (!StartConfiguration(gConfigurations[key], batchSize, throttled != 0, lanes)) {
      std::fprintf(stderr, "evaluator with batch size %lld did not start\n",
                   static_cast<long long>(batchSize));
      gConfigurations.clear();
      return 1;
    }
  }
  benchmark::RunSpecifiedBenchmarks();
  // Each destructor joins its worker: do it here, while the runtime's executors still exist.
  gConfigurations.clear();
  benchmark::Shutdown();
  return 0;
}
