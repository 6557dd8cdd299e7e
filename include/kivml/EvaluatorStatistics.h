#pragma once
// What an evaluator has done over a window of time: requests in and out, how long they waited and ran, how
// full its batches were and how busy each prediction lane was. A host reads it to see whether batching and
// lanes pay for themselves. Taking a snapshot costs a few microseconds, so polling it every second is fine.
// Each request is counted before its future completes: a snapshot taken once an answer is in counts it, and
// a reset made then starts a window that it is not part of.
//
// Times come from the evaluator's clock (the steady clock). Percentiles are read from histograms whose
// buckets are kBucketRatio wide (about 12%), from 100 ns to 1000 s: a percentile is within one bucket of the
// exact value and never outside the window's shortest and longest; count, mean and max are exact.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <vector>

#include "kivcore/classref/InterfaceRef.h"
#include "kivml/IMLEvaluator.h"
#include "kivml/kivml_export.h"

namespace kivml {

struct EvaluatorStatistics {
  // How much wider each histogram bucket is than the one below.
  static constexpr double kBucketRatio = 1.1220184543019633;  // 10^(1/20)

  struct Durations {
    uint64_t count = 0;
    std::chrono::nanoseconds mean{};
    std::chrono::nanoseconds p50{};
    std::chrono::nanoseconds p95{};
    std::chrono::nanoseconds p99{};
    std::chrono::nanoseconds max{};
  };

  // Batches that carried `rows` real requests.
  struct BatchRows {
    size_t rows = 0;
    uint64_t batches = 0;
    bool operator==(const BatchRows&) const = default;
  };

  struct Lane {
    std::chrono::nanoseconds predicting{};  // time spent in the backend's predictions
    double busyShare = 0.0;                 // predicting over the window's span, 0 to 1
  };

  // False for an evaluator that this library did not make: everything else is then empty.
  bool valid = false;

  // The window: since the evaluator was made, or since the last reset.
  std::chrono::steady_clock::time_point windowStart{};
  std::chrono::nanoseconds windowSpan{};

  // Every request that entered the queue ends up in exactly one of the other counts; once the queue has
  // drained and nothing runs, they add up to `queued` (a request queued before a reset and finished after
  // it is counted only in the latter).
  uint64_t queued = 0;
  uint64_t answered = 0;    // with its outputs
  uint64_t failed = 0;      // with a failure other than eModelExecutionTerminated; by result code below
  uint64_t terminated = 0;  // eModelExecutionTerminated: the queue cleared, the evaluator destroyed, exit
  uint64_t abandoned = 0;   // never answered: its future had been dropped when its turn came
  std::map<int, uint64_t> failuresByResult;

  // From QueueFeatures to the start of the request's prediction (a batch's wait for latecomers included).
  Durations queueWait;
  // Each prediction of the backend: one per request unbatched, one per batch batched.
  Durations prediction;
  // From QueueFeatures to the completion of the future, for requests answered or failed by a prediction.
  Durations completion;

  // Batched evaluators only: batches run (those run again one request at a time after a failed batch
  // included), real requests per batch, zero-filled or copied rows added to fill batches, and the time
  // spent filling each batch, waiting for latecomers included.
  uint64_t batches = 0;
  double meanRowsPerBatch = 0.0;
  std::vector<BatchRows> rowsPerBatch;  // by rows, ascending; sizes no batch had are left out
  uint64_t dummyRows = 0;
  Durations fillWait;

  // One entry per prediction lane in use (none before the evaluator has started).
  std::vector<Lane> lanes;
};

// A snapshot of a started or unstarted evaluator from CreatePreferredEvaluator; `valid` is false for an
// evaluator this library did not make.
KIVML_EXPORT EvaluatorStatistics
GetEvaluatorStatistics(const kivcore::classref::InterfaceRef<IMLEvaluator>& evaluator);

// Starts a new window now: every count and histogram goes back to zero. False for an evaluator this
// library did not make.
KIVML_EXPORT bool ResetEvaluatorStatistics(const kivcore::classref::InterfaceRef<IMLEvaluator>& evaluator);

}  // namespace kivml
