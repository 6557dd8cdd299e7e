#pragma once
// How many requests go into one batched prediction, from the memory the batch may use and the byte size
// of one row of the model's inputs.

#include <cstddef>
#include <cstdint>

#include "kivml/IMLModel.h"

namespace kivml {

// Rows that fit into `memoryAllowance` bytes, rounded up to a multiple of 8, at least 8 and at most
// 8 × the debug-database value "kivml.BatchSizeMultiplier" (default 16: so 8 to 128). An allowance of 0
// (nothing known about the memory) gives 8. A multiplier that is not a positive decimal number counts as
// absent. Descriptions that are not tensors add nothing to a row.
size_t CalculateOptimalBatchSize(size_t memoryAllowance, const FeatureDescriptionVector& descriptions);

// The multiplier as read now; the value is cached until the debug database changes.
uint64_t GetBatchSizeMultiplier();

}  // namespace kivml
