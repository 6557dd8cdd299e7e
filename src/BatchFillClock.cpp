#include "BatchFillClock.h"

namespace kivml {

BatchFillClock::~BatchFillClock() = default;

namespace {

class SteadyBatchFillClock final : public BatchFillClock {
 public:
  TimePoint Now() const override { return std::chrono::steady_clock::now(); }
  bool WaitAtGate(const kivcore::threads::Gate& gate, TimePoint deadline) const override {
    return gate.PassThroughUntil(deadline);
  }
};

}  // namespace

std::shared_ptr<const BatchFillClock> GetSteadyBatchFillClock() {
  static const auto clock = std::make_shared<const SteadyBatchFillClock>();
  return clock;
}

}  // namespace kivml
