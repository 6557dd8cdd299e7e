#pragma once

namespace kivml {

// The caller's wish about batching when asking for an evaluator.
enum BatchedInference : int {
  kBatchedInference = 0,    // gather requests into padded batches
  kUnbatchedInference = 1,  // run requests one by one
};

}  // namespace kivml
