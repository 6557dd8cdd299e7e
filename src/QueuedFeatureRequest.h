#pragma once
// One queued request: the promise that answers it, the inputs moved in from the caller and when it was
// queued.

#include <chrono>
#include <deque>
#include <utility>

#include "kivcore/allocator/STLAllocator.h"
#include "kivcore/async/Promise.h"
#include "kivml/IMLEvaluator.h"

namespace kivml {

struct QueuedFeatureRequest {
  // Spelled out so that emplace_back constructs in place on compilers without parenthesised aggregate
  // initialisation (clang before 16): the queue relies on nothing being moved before it has grown.
  QueuedFeatureRequest(kivcore::async::Promise<utility::FeatureContainerVector>&& promise,
                       utility::FeatureContainerVector&& inputs,
                       std::chrono::steady_clock::time_point queuedAt = {})
      : mPromise(std::move(promise)), mInputs(std::move(inputs)), mQueuedAt(queuedAt) {}

  kivcore::async::Promise<utility::FeatureContainerVector> mPromise;
  utility::FeatureContainerVector mInputs;
  std::chrono::steady_clock::time_point mQueuedAt;  // by the evaluator's clock
};

using FeatureRequestQueue =
    std::deque<QueuedFeatureRequest, kivcore::allocator::STLAllocator<QueuedFeatureRequest>>;

}  // namespace kivml
