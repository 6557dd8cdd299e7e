#include "utility/BatchContainer.h"

#include <algorithm>
#include <utility>

#include "kivml/utility/TensorFactories.h"

namespace kivml::utility {

BatchContainer::BatchContainer(size_t batchSize, FeatureDescriptionVector inputDescriptions)
    // A batch of no rows would never take a request: the loop that drains the queue would spin.
    : mBatchSize(std::max<size_t>(batchSize, 1)), mInputDescriptions(std::move(inputDescriptions)) {
  mBatchedFeatures.reserve(mBatchSize);
  mBatchedPromises.reserve(mBatchSize);
}

bool BatchContainer::AddToBatch(QueuedFeatureRequest&& request) {
  if (IsFull()) {
    return false;
  }
  if (request.mPromise.IsAbandoned()) {
    QueuedFeatureRequest dropped = std::move(request);
    return false;
  }
  mBatchedFeatures.push_back(std::move(request.mInputs));
  mBatchedPromises.push_back(std::move(request.mPromise));
  return true;
}

size_t BatchContainer::FinalizeBatch() {
  const size_t count = mBatchSize > mBatchedFeatures.size() ? mBatchSize - mBatchedFeatures.size() : 0;
  if (count == 0) {
    return 0;
  }
  // Every dummy row shares the same zero-filled tensors: backends only read their inputs.
  const FeatureContainerVector dummy = CreateDummyTensors(mInputDescriptions);
  mBatchedFeatures.insert(mBatchedFeatures.end(), count, dummy);
  return count;
}

}  // namespace kivml::utility
