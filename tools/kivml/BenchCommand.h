#pragma once
// `kivml bench MODEL.onnx`: throughput and latency of the library under closed-loop load from 1..n
// client threads, batched and unbatched, each against raw ONNX Runtime with the library's session options
// under the same load: one-row Runs for the unbatched mode, perfect batches for the batched one.

#include <cstdint>
#include <string>
#include <vector>

#include "BenchReport.h"

namespace CLI {
class App;
}

namespace kivml::cli {

class ModelSignature;
class ProgressBar;

class BenchCommand {
 public:
  CLI::App* Register(CLI::App& app);
  int Execute() const;

 private:
  // The --concurrency arguments, each a comma-separated list of client thread counts. Throws
  // CLI::ValidationError for an empty item, a count that is not a whole number from 1 to 4096, or a count
  // given twice.
  static std::vector<size_t> ParseConcurrency(const std::vector<std::string>& arguments);
  BenchMode RunMode(const ModelSignature& signature, const BenchInputs& inputs, bool batched,
                    ProgressBar& progress) const;

  std::string mModel;
  size_t mRequests = 1000;
  std::vector<size_t> mConcurrency{1, 4, 16, 64};
  bool mBatched = false;
  bool mUnbatched = false;
  bool mBoth = false;
  bool mGpu = false;
  std::vector<std::string> mDims;
  size_t mWarmup = 50;
  std::string mJson;
  std::string mPlot;
  uint64_t mSeed = 1;
};

}  // namespace kivml::cli
