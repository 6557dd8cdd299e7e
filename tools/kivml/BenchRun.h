#pragma once
// What one process of `kivml bench` measured. ONNX Runtime's shared thread pools spin or not for the whole
// life of a process, so each spinning setting is measured by a run of its own (the other one in a child
// process of the tool), with references measured alongside in the same rounds.

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "ClosedLoop.h"
#include "kivml/EvaluatorStatistics.h"

namespace kivml::cli {

struct BenchPoint {
  size_t concurrency = 0;  // the load level this was measured at
  LoopResult result;
  // What the library's evaluator recorded over the measured requests (none for the references).
  std::optional<EvaluatorStatistics> statistics;
};

// One load, at every concurrency level measured.
struct BenchSeries {
  size_t rowsPerCall = 1;
  std::vector<BenchPoint> points;

  // Nothing when that level was not measured.
  const LoopResult* At(size_t concurrency) const;
};

// One evaluator of the library and what it did.
struct BenchConfiguration {
  bool batched = false;
  unsigned lanesAsked = 1;  // kFitMachineLanes: the library fits the machine
  size_t lanes = 0;         // what the evaluator runs, once loaded
  size_t batchSize = 1;     // rows per model run
  std::string device;       // "CPU", "GPU (adapter)"
  BenchSeries kivml;        // one request per call

  std::string ModeName() const { return batched ? "batched" : "unbatched"; }
  // "1", or "auto (2)" for the machine's fit.
  std::string LanesText() const;
};

struct BenchRun {
  bool spinning = false;
  std::vector<BenchConfiguration> configurations;
  // ONNX Runtime with the library's session options, from each client: one row per Run (the unbatched
  // evaluator's ceiling) and ready batches of the batched evaluator's size (the batched one's).
  std::optional<BenchSeries> rawOneRow;
  std::optional<BenchSeries> rawBatches;
  // Hand-written ONNX Runtime: default session options, one session the clients share. One row per Run
  // from each client, and ready batches from a single thread at every level (none for a model that
  // cannot batch).
  BenchSeries handOneRow;
  std::optional<BenchSeries> handBatches;
};

}  // namespace kivml::cli
