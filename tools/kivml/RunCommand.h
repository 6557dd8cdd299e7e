#pragma once
// `kivml run MODEL.onnx --input NAME=FILE.npy ...`: one request through the library, its outputs written
// as .npy files. Inputs are checked against the model before the request is queued, so that a mistake is
// reported in the user's terms (names, dtypes, shapes) rather than as a failed request.

#include <optional>
#include <string>
#include <vector>

#include "NpyFiles.h"
#include "kivml/IMLEvaluator.h"

namespace CLI {
class App;
}

namespace kivml::cli {

class ModelSignature;

class RunCommand {
 public:
  CLI::App* Register(CLI::App& app);
  int Execute() const;

 private:
  struct Request {
    std::vector<NpyFiles::Loaded> files;  // the request's tensors read from these images
    utility::FeatureContainerVector features;
  };

  Request ReadInputs(const ModelSignature& signature) const;
  // Runs the request mRepeat times; returns the first answer and the mean time per request in seconds.
  std::pair<utility::FeatureContainerVector, double> RunRepeatedly(
      const ModelSignature& signature, IMLEvaluator& evaluator,
      const utility::FeatureContainerVector& request) const;
  void WriteOutputs(const ModelSignature& signature, const utility::FeatureContainerVector& outputs) const;

  std::string mModel;
  std::vector<std::string> mInputs;  // "NAME=FILE"
  std::string mOutputDir = ".";
  bool mBatched = false;
  bool mGpu = false;
  std::optional<unsigned> mLanes;  // unset: the library's setting
  int mRepeat = 1;
  bool mStats = false;
};

}  // namespace kivml::cli
