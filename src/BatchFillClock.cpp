#include "BatchFillClock.h"

#include <thread>

namespace kivml {

BatchFillClock::~BatchFillClock() = default;

namespace {

class SteadyBatchFillClock final : public BatchFillClock {
 public:
  TimePoint Now() const override { return std::chrono::steady_clock::now(); }
  bool WaitAtGate(const kivcore::threads::Gate& gate, TimePoint deadline) const override {
    return gate.PassThroughUntil(deadline);
  }
  bool SpinAtGate(const kivcore::threads::Gate& gate, TimePoint deadline) const override {
    // One atomic load per look rather than the queue's lock, so producers are not held up. Yielding between
    // looks matters on a machine with fewer cores than busy threads: the producer needs this one.
    while (!gate.IsOpen()) {
      if (Now() >= deadline) {
        return false;
      }
      std::this_thread::yield();
    }
    return true;
  }
};

}  // namespace

std::shared_ptr<const BatchFillClock> GetSteadyBatchFillClock() {
  static const auto clock = std::make_shared<const SteadyBatchFillClock>();
  return clock;
}

}  // namespace kivml
