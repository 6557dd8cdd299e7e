#pragma once
// What `kivml bench` found: every kivml configuration (mode, lanes, spinning) per concurrency next to raw
// ONNX Runtime with the library's session options, the hand-written references, and the targets; printed
// as plain aligned tables, and optionally written as JSON and drawn as a PNG through gnuplot.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <ostream>
#include <string>
#include <vector>

#include "BenchInputs.h"
#include "BenchRun.h"
#include "BenchTargets.h"

namespace kivml::cli {

struct BenchSetup {
  std::string model;
  bool gpuRequested = false;
  size_t requests = 0;
  size_t warmup = 0;
  uint64_t seed = 0;
  unsigned hardwareThreads = 0;
  std::vector<unsigned> lanes;  // as asked: kFitMachineLanes for the machine's fit
  std::vector<bool> spinning;   // the settings measured, in the order measured
  std::vector<BenchInput> inputs;
  std::vector<ResolvedDim> freeDims;
};

class BenchReport {
 public:
  explicit BenchReport(BenchSetup setup) : mSetup(std::move(setup)) {}

  void AddRun(BenchRun run) { mRuns.push_back(std::move(run)); }

  void PrintSetup(std::ostream& out) const;
  void PrintTables(std::ostream& out) const;
  void PrintTargets(std::ostream& out) const;
  // Both throw ToolError when the file cannot be written (or gnuplot is missing or fails).
  void WriteJson(const std::filesystem::path& file) const;
  void WritePlot(const std::filesystem::path& file) const;
  // Throws ToolError when WritePlot could not find gnuplot.
  static void RequireGnuplot();

 private:
  BenchSetup mSetup;
  std::vector<BenchRun> mRuns;
};

}  // namespace kivml::cli
