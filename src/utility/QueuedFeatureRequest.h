#pragma once
// One queued request: the promise that answers it and the inputs moved in from the caller.

#include <deque>

#include "kivcore/allocator/STLAllocator.h"
#include "kivcore/async/Promise.h"
#include "kivml/IMLEvaluator.h"

namespace kivml::utility {

struct QueuedFeatureRequest {
  kivcore::async::Promise<FeatureContainerVector> mPromise;
  FeatureContainerVector mInputs;
};

using FeatureRequestQueue =
    std::deque<QueuedFeatureRequest, kivcore::allocator::STLAllocator<QueuedFeatureRequest>>;

}  // namespace kivml::utility
