#pragma once
// One queued request: the promise that answers it and the inputs moved in from the caller.

#include <deque>
#include <utility>

#include "kivcore/allocator/STLAllocator.h"
#include "kivcore/async/Promise.h"
#include "kivml/IMLEvaluator.h"

namespace kivml::utility {

struct QueuedFeatureRequest {
  // Spelled out so that emplace_back constructs in place on compilers without parenthesised aggregate
  // initialisation (clang before 16): the queue relies on nothing being moved before it has grown.
  QueuedFeatureRequest(kivcore::async::Promise<FeatureContainerVector>&& promise,
                       FeatureContainerVector&& inputs)
      : mPromise(std::move(promise)), mInputs(std::move(inputs)) {}

  kivcore::async::Promise<FeatureContainerVector> mPromise;
  FeatureContainerVector mInputs;
};

using FeatureRequestQueue =
    std::deque<QueuedFeatureRequest, kivcore::allocator::STLAllocator<QueuedFeatureRequest>>;

}  // namespace kivml::utility
