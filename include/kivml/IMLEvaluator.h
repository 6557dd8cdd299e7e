#pragma once
// Runs one model on queued requests. A request is a vector of named input features; each QueueFeatures
// call returns a future that yields that request's named outputs or fails with a result code. Slot order
// is part of the contract.
//
// What a host can rely on, for the evaluators this library makes (CreatePreferredEvaluator):
// - Exactly once. Every future completes once: with the request's outputs, or failed with a code from
//   kivml/ResultCodes.h. None is left pending, whatever happens to the evaluator. A request whose future
//   (and every future chained from it) is dropped is abandoned: it is skipped, never run.
// - Order. Requests are taken from one queue in the order their QueueFeatures calls entered it. With one
//   prediction lane (the default) they also run, and their futures complete, in that order; a batch's rows
//   are consecutive requests. With K lanes up to K predictions run at once, each on requests taken in order,
//   so futures may complete out of order.
// - Threads. Any method may be called from any thread. A future completes on the evaluator's worker thread
//   (the lane that ran it); a request that fails before it is queued completes on the caller's thread
//   before QueueFeatures returns. Continuations attached with Then run on the executor they name (or the
//   default executor), never inside the call that completes the future. Throttle functions run on a serial
//   executor of the library, never under its locks; a function may queue requests.
// - Pause and Resume. Pause stops the lanes from taking requests; a prediction already under way finishes
//   and is answered, and requests may still be queued meanwhile. Resume takes them up in order. Both are
//   false before the evaluator has started.
// - Release. When the last reference goes, requests still queued fail with eModelExecutionTerminated;
//   those already taken into a prediction are answered first. At process exit queued requests fail alike.
// - Throttle. After each change of the queue's length, registered functions are told kPause while it holds
//   more than its threshold (8 batches' worth when batching, 512 requests otherwise, whatever the number of
//   lanes) and kResume otherwise.
// - Blocking. QueueFeatures, Pause, Resume, RegisterThrottleFxn and CheckHealth never wait for a
//   prediction: they take the queue's lock briefly and return. Only the futures' Wait calls block. Releasing
//   the last reference while a prediction runs does not wait for it either: that run keeps the evaluator
//   alive and destroys it on the worker when it ends.

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
  // Queues one request; `inputs` is moved from. Never throws to its caller. Keep the returned future (or a
  // future chained from it with Then) for as long as the answer is wanted: a request whose future is
  // dropped is abandoned, and the evaluator skips it without running it, so `QueueFeatures(x).Then(cb);` on
  // its own never runs cb.
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
