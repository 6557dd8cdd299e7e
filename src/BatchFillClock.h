#pragma once
// The time source of the batch fill loop: when it is, and how it waits at the evaluator's gate for more
// requests, sleeping or spinning. Tests give the loop a clock of their own so the adaptive wait is checked
// without sleeping.

#include <chrono>
#include <memory>

#include "kivcore/threads/Gate.h"

namespace kivml {

class BatchFillClock {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  virtual ~BatchFillClock();
  virtual TimePoint Now() const = 0;
  // Waits until the gate opens or `deadline` passes; true when the gate opened in time.
  virtual bool WaitAtGate(const kivcore::threads::Gate& gate, TimePoint deadline) const = 0;
  // The same without sleeping: watches the gate, yielding between looks, so that a request arriving within a
  // short idle spell is taken at once rather than after a wake-up.
  virtual bool SpinAtGate(const kivcore::threads::Gate& gate, TimePoint deadline) const = 0;
};

// The steady clock with real waits; shared, stateless.
std::shared_ptr<const BatchFillClock> GetSteadyBatchFillClock();

}  // namespace kivml
