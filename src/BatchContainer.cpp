#include "BatchContainer.h"

#include <algorithm>
#include <utility>

#include "kivml/ITensorFeatureDescription.h"
#include "kivml/ITensorMLFeatureAccessor.h"
#include "kivml/utility/TensorFactories.h"
#include "utility/TensorDescription.h"

namespace kivml {

namespace {

// Gives each free dimension (-1) the size it has in `row`'s tensor of the same name, or 1 when the row has
// none to copy, so that dummy rows agree with the real rows of their batch (image height and width...).
FeatureDescriptionVector SizeFreeDimensions(const FeatureDescriptionVector& descriptions,
                                            const utility::FeatureContainerVector& row) {
  FeatureDescriptionVector sized;
  sized.reserve(descriptions.size());
  for (const auto& description : descriptions) {
    const auto tensorDescription = description.Query<ITensorFeatureDescription>();
    DescriptionShapeType shape =
        tensorDescription ? tensorDescription->GetTensorShape() : DescriptionShapeType();
    if (std::find(shape.begin(), shape.end(), -1) == shape.end()) {
      sized.push_back(description);
      continue;
    }
    const auto match = std::find_if(row.begin(), row.end(), [&](const auto& container) {
      return container.mFeatureName == tensorDescription->GetName();
    });
    const auto tensor =
        match == row.end() ? nullptr : match->mFeature.template Query<ITensorMLFeatureAccessor>();
    const ShapeType rowShape = tensor ? tensor->GetShape() : ShapeType();
    for (size_t i = 0; i < shape.size(); ++i) {
      if (shape[i] == -1) {
        shape[i] = rowShape.size() == shape.size() ? static_cast<int64_t>(rowShape[i]) : 1;
      }
    }
    sized.push_back(kivcore::classref::MakeInterfaceRef<IFeatureDescription>(
        kivcore::classref::CreateObject<utility::TensorDescription>(
            tensorDescription->GetName(), tensorDescription->GetTensorDataType(), std::move(shape))));
  }
  return sized;
}

}  // namespace

BatchContainer::BatchContainer(size_t batchSize, FeatureDescriptionVector inputDescriptions)
    // A batch of no rows would never take a request: the loop that drains the queue would spin.
    : mBatchSize(std::max<size_t>(batchSize, 1)), mInputDescriptions(std::move(inputDescriptions)) {
  mBatchedFeatures.reserve(mBatchSize);
  mBatchedPromises.reserve(mBatchSize);
  mQueuedTimes.reserve(mBatchSize);
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
  mQueuedTimes.push_back(request.mQueuedAt);
  return true;
}

size_t BatchContainer::FinalizeBatch() {
  if (IsFull()) {
    return 0;
  }
  // Every dummy row shares the same zero-filled tensors: backends only read their inputs.
  return PadWith(utility::CreateDummyTensors(
      mBatchedFeatures.empty() ? mInputDescriptions
                               : SizeFreeDimensions(mInputDescriptions, mBatchedFeatures.front())));
}

size_t BatchContainer::PadWith(const utility::FeatureContainerVector& row) {
  const size_t count = mBatchSize > mBatchedFeatures.size() ? mBatchSize - mBatchedFeatures.size() : 0;
  // Copies share the row's tensors, not their bytes.
  mBatchedFeatures.insert(mBatchedFeatures.end(), count, row);
  return count;
}

FeatureRequestQueue BatchContainer::TakeRequests() {
  FeatureRequestQueue requests;
  for (size_t row = 0; row < mBatchedPromises.size(); ++row) {
    requests.emplace_back(std::move(mBatchedPromises[row]), std::move(mBatchedFeatures[row]),
                          mQueuedTimes[row]);
  }
  mBatchedPromises.clear();
  mQueuedTimes.clear();
  mBatchedFeatures.clear();
  return requests;
}

}  // namespace kivml
