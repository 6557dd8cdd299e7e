// What the evaluator costs over ONNX Runtime itself, on a small CNN (make_bench_cnn.py): x [N, 3, 32, 32]
// to y [N, 10], N the batch.
//
//   RawORT          producers call Run on one session, each on a ready batch of B rows (B: the batched
//                   evaluator's batch size). The same environment and session options as the library use,
//                   so this is the ceiling for batched inference: perfect batches, no queue, no copies.
//   KivmlBatched    producers queue one-row requests to an evaluator that gathers them into padded batches.
//   KivmlUnbatched  the same with batching off: one Run per request.
//
// Each family runs with 1 to 64 producers. A kivml producer keeps kWindowPerProducer requests in flight and
// waits on the oldest when its window is full, so the queue stays fed. items_per_second counts requests
// (B per Run for RawORT); latency_ms is Run time for RawORT and queue-to-collected time for kivml. After
// the runs, a table gives each kivml family's throughput as a fraction of RawORT's per producer count
// (and of RawORT's with one producer): compare within one run, as absolute rates depend on the load.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <exception>
#include <iterator>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "BaseMLEvaluator.h"
#include "ProducerBarrier.h"
#include "kivcore/allocator/RecycledMemory.h"
#include "kivcore/config/InitializerRegistrar.h"
#include "kivcore/utility/ImmutableString.h"
#include "kivml/CreatePreferredEvaluator.h"
#include "kivml/ONNXModelFactory.h"
#include "kivml/utility/TensorFactories.h"
#include "onnxruntime/ConfigureSessionOptions.h"
#include "onnxruntime/ExecutionProviders.h"
#include "onnxruntime/ORTApi.h"
#include "onnxruntime/ORTEnvironment.h"
#include "onnxruntime/ORTEvaluator.h"

namespace {

using Clock = std::chrono::steady_clock;
using kivcore::classref::InterfaceRef;
using RequestFuture = kivcore::async::Future<kivml::utility::FeatureContainerVector>;

constexpr const char* kModelPath = KIVML_BENCH_CNN_MODEL;
constexpr int64_t kRowElements = 3 * 32 * 32;
// Four batches of 8: enough that the worker never waits for a producer to queue the next batch.
constexpr size_t kWindowPerProducer = 32;
// Used when the evaluator does not say its batch size: the library's choice without a GPU.
constexpr size_t kFallbackBatchRows = 8;

using UniqueMemoryInfo =
    std::unique_ptr<OrtMemoryInfo, kivml::ort::OrtReleaser<OrtMemoryInfo, &OrtApi::ReleaseMemoryInfo>>;

// Everything the benchmarks share, made in main before any runs (starting an evaluator creates its worker).
struct Fixture {
  InterfaceRef<kivml::IMLEvaluator> mBatched;
  InterfaceRef<kivml::IMLEvaluator> mUnbatched;
  size_t mBatchRows = kFallbackBatchRows;
  kivml::ort::UniqueSession mSession;
  // B rows for RawORT; read-only once made, so every producer wraps the same floats.
  std::vector<float> mBatchData;
  UniqueMemoryInfo mCpuMemory;
  // One row for kivml, copied into each request: a feature may be shared, the library only reads inputs.
  kivml::utility::FeatureContainerVector mRequest;
};
std::unique_ptr<Fixture> gFixture;

kivml::benchmarks::ProducerBarrier gProducers;

double Milliseconds(Clock::duration duration) {
  return std::chrono::duration<double, std::milli>(duration).count();
}

void SetCounters(benchmark::State& state, int64_t requestsPerIteration, double latencySumMs) {
  state.SetItemsProcessed(state.iterations() * requestsPerIteration);
  // Summed over producers, then divided by every producer's iterations: the mean per iteration.
  state.counters["latency_ms"] = benchmark::Counter(latencySumMs, benchmark::Counter::kAvgIterations);
}

void RawORT(benchmark::State& state) {
  if (state.thread_index() == 0) {
    gProducers.Reset();
  }
  const OrtApi& api = kivml::ort::Api();
  Fixture& fixture = *gFixture;
  const int64_t shape[] = {static_cast<int64_t>(fixture.mBatchRows), 3, 32, 32};
  OrtValue* input = nullptr;
  kivml::ort::ThrowIfFailed(api.CreateTensorWithDataAsOrtValue(
      fixture.mCpuMemory.get(), fixture.mBatchData.data(), fixture.mBatchData.size() * sizeof(float), shape,
      4, ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT, &input));
  const kivml::ort::UniqueValue inputOwner(input);
  const char* const inputNames[] = {"x"};
  const char* const outputNames[] = {"y"};
  double latencySumMs = 0;
  benchmark::IterationCount left = state.max_iterations;
  for (auto _ : state) {
    OrtValue* output = nullptr;
    const Clock::time_point start = Clock::now();
    try {
      kivml::ort::ThrowIfFailed(
          api.Run(fixture.mSession.get(), nullptr, inputNames, &input, 1, outputNames, 1, &output));
    } catch (const std::exception& exception) {
      state.SkipWithError(exception.what());
      gProducers.FinishTogether(state, false);
      break;
    }
    latencySumMs += Milliseconds(Clock::now() - start);
    api.ReleaseValue(output);
    if (--left == 0) {
      gProducers.FinishTogether(state, true);
    }
  }
  SetCounters(state, static_cast<int64_t>(fixture.mBatchRows), latencySumMs);
}

struct Pending {
  RequestFuture mFuture;
  Clock::time_point mQueued;
};

// Waits for a request's answer, adds its latency and empties the slot; false when the request failed.
bool Collect(Pending& slot, double& latencySumMs) {
  slot.mFuture.Wait();
  latencySumMs += Milliseconds(Clock::now() - slot.mQueued);
  const bool answered = slot.mFuture.HasValue();
  slot.mFuture = RequestFuture();
  return answered;
}

void Kivml(benchmark::State& state, kivml::IMLEvaluator& evaluator) {
  if (state.thread_index() == 0) {
    gProducers.Reset();
  }
  const kivml::utility::FeatureContainerVector& request = gFixture->mRequest;
  std::vector<Pending> window(kWindowPerProducer);
  double latencySumMs = 0;
  kivml::benchmarks::RunProducerWindow(
      state, gProducers, window, [](const Pending& slot) { return slot.mFuture.IsValid(); },
      [&latencySumMs](Pending& slot) { return Collect(slot, latencySumMs); },
      [&evaluator, &request](Pending& slot) {
        slot.mQueued = Clock::now();
        slot.mFuture = evaluator.QueueFeatures(kivml::utility::FeatureContainerVector(request));
      });
  SetCounters(state, 1, latencySumMs);
}

void KivmlBatched(benchmark::State& state) {
  Kivml(state, *gFixture->mBatched);
}
void KivmlUnbatched(benchmark::State& state) {
  Kivml(state, *gFixture->mUnbatched);
}

// By producer count, then family: the rows that a ratio compares run one after the other, so that the
// machine's load drifts little between them. Three repetitions, of which the median counts, so that one
// disturbed repetition does not decide a ratio.
void RegisterBenchmarks() {
  for (int threads = 1; threads <= 64; threads *= 2) {
    for (const auto& [name, function] :
         {std::pair{"RawORT", &RawORT}, std::pair{"KivmlBatched", &KivmlBatched},
          std::pair{"KivmlUnbatched", &KivmlUnbatched}}) {
      benchmark::RegisterBenchmark(name, function)
          ->Threads(threads)
          ->UseRealTime()
          ->MinTime(0.5)
          ->Repetitions(3)
          ->DisplayAggregatesOnly(true);
    }
  }
}

// The console output, plus each family's requests per second by producer count for the closing table: the
// median over repetitions, or the mean of the runs when there are no aggregates (one repetition).
class RatioReporter : public benchmark::ConsoleReporter {
 public:
  // Plain text: the output usually goes to a file or a log.
  RatioReporter() : ConsoleReporter(OO_Tabular) {}

  // Shows the medians only (or the runs, when there are no aggregates); --benchmark_out has everything.
  void ReportRuns(const std::vector<Run>& runs) override {
    std::vector<Run> shown;
    std::copy_if(runs.begin(), runs.end(), std::back_inserter(shown), [](const Run& run) {
      return run.run_type == Run::RT_Iteration || run.aggregate_name == "median";
    });
    ConsoleReporter::ReportRuns(shown);
    for (const Run& run : runs) {
      const auto rate = run.counters.find("items_per_second");
      if (run.error_occurred || rate == run.counters.end()) {
        continue;
      }
      Rates& rates = mRates[run.threads][run.run_name.function_name];
      if (run.run_type == Run::RT_Iteration) {
        rates.sum += rate->second.value;
        ++rates.count;
      } else if (run.aggregate_name == "median") {
        rates.median = rate->second.value;
      }
    }
  }

  // batched/raw and unbatched/raw compare at equal producer counts. The evaluator runs one prediction at a
  // time, while RawORT's producers run theirs concurrently; batched/raw1 compares with one RawORT producer.
  void PrintRatios() const {
    const auto single = mRates.find(1);
    const double raw1 = single == mRates.end() ? 0.0 : Rate(single->second, "RawORT");
    std::printf("\n%8s %13s %13s %13s %12s %14s %12s\n", "threads", "RawORT/s", "batched/s", "unbatched/s",
                "batched/raw", "unbatched/raw", "batched/raw1");
    for (const auto& [threads, families] : mRates) {
      const double raw = Rate(families, "RawORT");
      const double batched = Rate(families, "KivmlBatched");
      const double unbatched = Rate(families, "KivmlUnbatched");
      std::printf("%8lld %13.0f %13.0f %13.0f %12.3f %14.3f %12.3f\n", static_cast<long long>(threads), raw,
                  batched, unbatched, Ratio(batched, raw), Ratio(unbatched, raw), Ratio(batched, raw1));
    }
  }

 private:
  struct Rates {
    double median = 0;
    double sum = 0;
    int count = 0;
  };
  using Families = std::map<std::string, Rates>;

  static double Ratio(double rate, double reference) { return reference > 0 ? rate / reference : 0.0; }
  static double Rate(const Families& families, const std::string& name) {
    const auto found = families.find(name);
    if (found == families.end()) {
      return 0.0;
    }
    const Rates& rates = found->second;
    return rates.median > 0 ? rates.median : rates.count > 0 ? rates.sum / rates.count : 0.0;
  }

  std::map<int64_t, Families> mRates;  // by producer count, then family
};

InterfaceRef<kivml::IMLEvaluator> StartEvaluator(const InterfaceRef<kivml::ModelMock>& model,
                                                 kivml::BatchedInference batched, size_t warmUpRequests) {
  auto created = kivml::CreatePreferredEvaluator(model, batched);
  created.Wait();
  InterfaceRef<kivml::IMLEvaluator> evaluator = created.Get();
  // Until it has timed a few batches the fill loop waits long for latecomers: get that over with here.
  std::vector<RequestFuture> warmUp;
  for (size_t row = 0; row < warmUpRequests; ++row) {
    warmUp.push_back(evaluator->QueueFeatures(kivml::utility::FeatureContainerVector(gFixture->mRequest)));
  }
  for (RequestFuture& future : warmUp) {
    future.Wait();
    future.Get();
  }
  return evaluator;
}

// With the library's own session options, so that only the evaluator differs.
kivml::ort::UniqueSession CreateRawSession(size_t batchRows) {
  const OrtApi& api = kivml::ort::Api();
  OrtSessionOptions* created = nullptr;
  kivml::ort::ThrowIfFailed(api.CreateSessionOptions(&created));
  const kivml::ort::UniqueSessionOptions options(created);
  kivml::ort::ConfigureSessionOptions(options.get(), static_cast<int64_t>(batchRows),
                                      kivml::ort::ExecutionProviders::CPU());
  OrtSession* session = nullptr;
  kivml::ort::ThrowIfFailed(
      api.CreateSession(kivml::ort::ORTEnvironment::Get(), kModelPath, options.get(), &session));
  return kivml::ort::UniqueSession(session);
}

void SetUp() {
  gFixture = std::make_unique<Fixture>();
  Fixture& fixture = *gFixture;
  auto row = kivcore::allocator::RecycledMemory::Create(kRowElements * sizeof(float));
  std::vector<float> values(kRowElements);
  for (int64_t element = 0; element < kRowElements; ++element) {
    values[static_cast<size_t>(element)] = static_cast<float>(element % 17) / 17.0f - 0.5f;
  }
  std::memcpy(row->Buffer(), values.data(), values.size() * sizeof(float));
  fixture.mRequest.push_back(
      {kivcore::utility::ImmutableString::Create("x"),
       kivml::utility::CreatePackedTensor(row, sizeof(float), kivml::ShapeType{1, 3, 32, 32})});

  const auto model = kivml::CreateONNXModelFromFile(kModelPath);
  fixture.mBatched = StartEvaluator(model, kivml::kBatchedInference, 4 * kFallbackBatchRows);
  fixture.mUnbatched = StartEvaluator(model, kivml::kUnbatchedInference, 4);
  // RawORT runs the batches the batched evaluator runs.
  if (const auto* base = dynamic_cast<const kivml::BaseMLEvaluator*>(fixture.mBatched.get())) {
    fixture.mBatchRows = std::max<size_t>(base->GetBatchSize(), 1);
  }
  std::printf("batch size B = %zu rows, %zu requests in flight per kivml producer\n", fixture.mBatchRows,
              kWindowPerProducer);

  fixture.mSession = CreateRawSession(fixture.mBatchRows);
  for (size_t copy = 0; copy < fixture.mBatchRows; ++copy) {
    fixture.mBatchData.insert(fixture.mBatchData.end(), values.begin(), values.end());
  }
  OrtMemoryInfo* memory = nullptr;
  kivml::ort::ThrowIfFailed(
      kivml::ort::Api().CreateCpuMemoryInfo(OrtArenaAllocator, OrtMemTypeDefault, &memory));
  fixture.mCpuMemory.reset(memory);
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
    return 1;
  }
  if (!kivcore::config::RunInitializers()) {
    std::fprintf(stderr, "the library's initializers failed\n");
    return 1;
  }
  int result = 0;
  try {
    SetUp();
    RegisterBenchmarks();
    RatioReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    reporter.PrintRatios();
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "set-up failed: %s\n", exception.what());
    result = 1;
  }
  // The evaluators join their workers and the session goes back to the environment: both before shutdown.
  gFixture.reset();
  benchmark::Shutdown();
  kivcore::config::RunShutdown();
  return result;
}
