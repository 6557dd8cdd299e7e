#pragma once
// Runs one model on queued requests. A request is a vector of named input features; each QueueFeatures
// call returns a future that yields that request's named outputs or fails with a result code. Callable
// from any thread; QueueFeatures never throws to its caller. Slot order is part of the contract.

#include <functional>
#include <memory>
#include <vector>

#include "kivcore/allocator/STLAllocator.h"
#include "kivcore/async/Future.h"
#include "kivcore/classref/InterfaceRef.h"
#include "kivcore/utility/ImmutableString.h"
#include "kivml/IMLFeature.h"

namespace kivml {

class IMLEvaluator : public kivcore::classref::Unknown {
 public:
  static constexpr kivcore::utility::Guid kIID{"71AC0C1C-D3B5-45AF-8225-070DA7342C13", 36};

  // One named feature: the unit in which inputs and outputs travel. Features are matched by name; the
  // order inside a vector carries no meaning.
  struct FeatureContainer {
    kivcore::utility::ImmutableString mFeatureName;
    kivcore::classref::InterfaceRef<IMLFeature> mFeature;
  };
  using FeatureContainerVector =
      std::vector<FeatureContainer, kivcore::allocator::STLAllocator<FeatureContainer>>;

  // What a registered throttle function is told.
  enum ThrottleOptions : int {
    kPause = 0,   // the queue has grown past its threshold: stop queuing
    kResume = 1,  // the queue is at or below the threshold again
  };
  using ThrottleFunction = std::function<void(ThrottleOptions)>;

  // Health check implemented by concrete evaluators; 0 means the evaluator can take requests.
  virtual int CheckHealth() = 0;
  // Queues one request; `inputs` is moved from. Keep the returned future (or a future chained from it with
  // Then) for as long as the answer is wanted: a request whose future is dropped is abandoned, and the
  // evaluator skips it without running it, so `QueueFeatures(x).Then(cb);` on its own never runs cb.
  [[nodiscard]] virtual kivcore::async::Future<FeatureContainerVector> QueueFeatures(
      FeatureContainerVector&& inputs) = 0;
  // Suspends the evaluator's worker; false when there is no worker yet.
  virtual bool Pause() = 0;
  virtual bool Resume() = 0;
  // The evaluator keeps only a weak reference: the caller keeps the function alive while it wants calls.
  virtual void RegisterThrottleFxn(std::weak_ptr<ThrottleFunction> throttle) = 0;
};

namespace utility {
using FeatureContainerVector = IMLEvaluator::FeatureContainerVector;
}

}  // namespace kivml
