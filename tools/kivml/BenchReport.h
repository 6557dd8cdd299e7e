#pragma once
// What `kivml bench` found: per mode and concurrency, the library against raw ONNX Runtime, printed as
// plain aligned tables with a two-line summary of the targets, and optionally written as JSON and drawn
// as a PNG through gnuplot.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "BenchInputs.h"
#include "ClosedLoop.h"

namespace kivml::cli {

struct BenchRow {
  size_t concurrency = 0;
  LoopResult kivml;
  LoopResult raw;

  double ThroughputRatio() const;  // kivml/raw requests per second
  double P50DifferenceUs() const;  // kivml p50 minus raw p50
};

struct BenchMode {
  std::string name;      // "batched" or "unbatched"
  size_t batchSize = 1;  // rows per run, for the evaluator and the raw reference alike
  std::string device;    // where both ran: "CPU" or "GPU (adapter)"
  std::vector<BenchRow> rows;
};

struct BenchSetup {
  std::string model;
  bool gpuRequested = false;
  size_t requests = 0;
  size_t warmup = 0;
  uint64_t seed = 0;
  unsigned hardwareThreads = 0;
  std::vector<BenchInput> inputs;
  std::vector<ResolvedDim> freeDims;
};

class BenchReport {
 public:
  explicit BenchReport(BenchSetup setup) : mSetup(std::move(setup)) {}

  void AddMode(BenchMode mode) { mModes.push_back(std::move(mode)); }

  void PrintSetup(std::ostream& out) const;
  void PrintTables(std::ostream& out) const;
  void PrintTargets(std::ostream& out) const;
  // Both throw ToolError when the file cannot be written (or gnuplot is missing or fails).
  void WriteJson(const std::filesystem::path& file) const;
  void WritePlot(const std::filesystem::path& file) const;
  // Throws ToolError when WritePlot could not find gnuplot.
  static void RequireGnuplot();

 private:
  // (a): the best batched throughput with enough clients to fill a batch, over raw ONNX Runtime running
  // one perfect batch at a time, which is the evaluator's ceiling.
  struct BatchedTarget {
    double ratio;
    double kivmlRequestsPerSecond;
    size_t kivmlConcurrency;
    double rawRequestsPerSecond;
  };
  // (b): what one unbatched request costs over a raw batch-1 run, with one client.
  struct UnbatchedTarget {
    double differenceUs;
    double kivmlP50Ms;
    double rawP50Ms;
  };

  const BenchMode* FindMode(const std::string& name) const;
  std::optional<BatchedTarget> ComputeBatchedTarget() const;
  std::optional<UnbatchedTarget> ComputeUnbatchedTarget() const;

  BenchSetup mSetup;
  std::vector<BenchMode> mModes;
};

}  // namespace kivml::cli
