#pragma once
// `kivml bench MODEL.onnx`: throughput and latency of the library under closed-loop load from 1..n
// client threads, for every configuration asked for (batched and unbatched, lane counts, ONNX Runtime's
// shared pools spinning or not), each against raw ONNX Runtime with the library's session options under
// the same load (one-row Runs for the unbatched mode, ready batches for the batched one), and against
// hand-written ONNX Runtime with its default session options, with the targets they are held to.
//
// Spinning is fixed when the library initialises, so the setting this process does not have is measured
// by the tool itself in a child process, which hands its measurements back through a file.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "BenchReport.h"
#include "kivml/EvaluatorOptions.h"

namespace CLI {
class App;
}

namespace kivml::cli {

class ModelSignature;
class ProgressBar;

class BenchCommand {
 public:
  CLI::App* Register(CLI::App& app);
  // `settingsArguments` give a child process of the tool the library settings this one has.
  int Execute(const std::vector<std::string>& settingsArguments) const;

 private:
  // Every configuration of this process's spinning setting, with the references, round by round.
  BenchRun Measure(const ModelSignature& signature, const BenchInputs& inputs, bool spinning,
                   ProgressBar& progress) const;
  // The same, by a run of the tool with the other setting.
  BenchRun MeasureInChild(bool spinning, const std::vector<std::string>& settingsArguments) const;

  std::string mModel;
  size_t mRequests = 1000;
  std::vector<size_t> mConcurrency{1, 4, 16, 64};
  std::vector<unsigned> mLanes{1, kFitMachineLanes};
  std::string mSpinning = "off";
  bool mBatched = false;
  bool mUnbatched = false;
  bool mBoth = false;
  bool mGpu = false;
  std::vector<std::string> mDims;
  size_t mWarmup = 50;
  std::string mJson;
  std::string mPlot;
  uint64_t mSeed = 1;
  std::filesystem::path mRunFile;  // set in a child process: where its measurements go
};

}  // namespace kivml::cli
