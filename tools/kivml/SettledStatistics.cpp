#include "SettledStatistics.h"

#include <chrono>
#include <thread>

namespace kivml::cli {

EvaluatorStatistics ReadSettledStatistics(const kivcore::classref::InterfaceRef<IMLEvaluator>& evaluator) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(1);
  for (;;) {
    EvaluatorStatistics statistics = GetEvaluatorStatistics(evaluator);
    const uint64_t accounted =
        statistics.answered + statistics.failed + statistics.terminated + statistics.abandoned;
    if (!statistics.valid || accounted >= statistics.queued || std::chrono::steady_clock::now() >= deadline) {
      return statistics;
    }
    std::this_thread::sleep_for(std::chrono::microseconds(100));
  }
}

}  // namespace kivml::cli
