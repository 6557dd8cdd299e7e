#pragma once
// What a host may choose when asking for an evaluator, beyond batching.

#include <optional>

#include "kivml/BatchedInference.h"

namespace kivml {

// A lane count that asks the library to fit the machine (see kivml/Settings.h, kivml.PredictionLanes).
inline constexpr unsigned kFitMachineLanes = 0;

struct EvaluatorOptions {
  explicit EvaluatorOptions(BatchedInference batchedInference = kUnbatchedInference,
                            std::optional<unsigned> predictionLanes = std::nullopt)
      : batched(batchedInference), lanes(predictionLanes) {}

  BatchedInference batched;
  // How many predictions the evaluator may run at once, each on a worker thread of its own, taking
  // requests (or batches) from the one queue in arrival order. 1 is one worker whose predictions never
  // overlap; kFitMachineLanes lets the library choose. Unset: the setting kivml.PredictionLanes, which
  // defaults to 1. A session that cannot run predictions concurrently (a GPU session) runs one lane.
  std::optional<unsigned> lanes;
};

}  // namespace kivml
