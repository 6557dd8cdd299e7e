#pragma once
// Collects the rows of one batched prediction: the inputs of each real request with its promise and when it
// was queued, then zero-filled dummy rows up to the batch size. Lives for one prediction; used by one thread.

#include <chrono>
#include <cstddef>
#include <functional>
#include <vector>

#include "QueuedFeatureRequest.h"
#include "kivcore/allocator/STLAllocator.h"
#include "kivml/IMLModel.h"

namespace kivml {

class BatchContainer {
 public:
  using FeatureVectors = std::vector<utility::FeatureContainerVector,
                                     kivcore::allocator::STLAllocator<utility::FeatureContainerVector>>;
  using Promises =
      std::vector<kivcore::async::Promise<utility::FeatureContainerVector>,
                  kivcore::allocator::STLAllocator<kivcore::async::Promise<utility::FeatureContainerVector>>>;
  using QueuedTimes = std::vector<std::chrono::steady_clock::time_point,
                                  kivcore::allocator::STLAllocator<std::chrono::steady_clock::time_point>>;
  template <class T>
  using Transformer = std::function<QueuedFeatureRequest(T&)>;

  BatchContainer(size_t batchSize, FeatureDescriptionVector inputDescriptions);

  // Takes the request as a row. False when the batch is full (the request is left as it was) or when
  // nobody waits for the answer any more (the request is then dropped: its inputs are freed).
  bool AddToBatch(QueuedFeatureRequest&& request);

  // Moves items from the front of `items` into the batch, each turned into a request by `transformer`,
  // until the batch is full or `items` is empty. Items taken are removed from `items`, dropped ones too.
  // Returns how many were dropped: nobody waited for their answer, or the transformer had already answered
  // them and handed over an empty promise.
  template <class Container>
  size_t FillBatchFromContainer(Container& items,
                                const Transformer<typename Container::value_type>& transformer) {
    size_t dropped = 0;
    while (!IsFull() && !items.empty()) {
      if (!AddToBatch(transformer(items.front()))) {
        ++dropped;
      }
      items.pop_front();
    }
    return dropped;
  }

  // Pads the batch with dummy rows (no promise) up to the batch size; returns how many it added.
  size_t FinalizeBatch();
  // Pads the batch with copies of `row` (no promise) up to the batch size; returns how many it added.
  size_t PadWith(const utility::FeatureContainerVector& row);
  // Takes the real rows back out as requests, in order, and empties the batch.
  FeatureRequestQueue TakeRequests();

  bool IsEmpty() const noexcept { return mBatchedFeatures.empty(); }
  bool IsFull() const noexcept { return mBatchedFeatures.size() >= mBatchSize; }
  // Rows held, dummy rows included.
  size_t Size() const noexcept { return mBatchedFeatures.size(); }
  size_t BatchSize() const noexcept { return mBatchSize; }

  const FeatureVectors& GetBatchedFeatures() const noexcept { return mBatchedFeatures; }
  Promises& GetBatchedPromises() noexcept { return mBatchedPromises; }
  // When each real row was queued, in row order.
  const QueuedTimes& GetQueuedTimes() const noexcept { return mQueuedTimes; }

 private:
  const size_t mBatchSize;
  const FeatureDescriptionVector mInputDescriptions;
  FeatureVectors mBatchedFeatures;
  Promises mBatchedPromises;
  QueuedTimes mQueuedTimes;
};

}  // namespace kivml
