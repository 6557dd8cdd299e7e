#pragma once
// An evaluator's statistics once every queued request is accounted for. A request is counted before its
// future completes, so a test that has seen every answer needs no wait; one that dropped futures does, as the
// lanes still have to come across those requests and skip them.

#include <chrono>
#include <cstdint>
#include <thread>

#include "BaseMLEvaluator.h"
#include "kivml/EvaluatorStatistics.h"
#include "support/FutureChecks.h"

namespace kivml::testing {

// Requests whose end the statistics know.
inline uint64_t Accounted(const EvaluatorStatistics& statistics) {
  return statistics.answered + statistics.failed + statistics.terminated + statistics.abandoned;
}

// The statistics once every queued request is accounted for, or as they stand after kFutureTimeout.
inline EvaluatorStatistics SettledStatistics(const BaseMLEvaluator& evaluator) {
  const auto deadline = std::chrono::steady_clock::now() + kFutureTimeout;
  for (;;) {
    EvaluatorStatistics statistics = evaluator.GetStatistics();
    if (Accounted(statistics) >= statistics.queued || std::chrono::steady_clock::now() >= deadline) {
      return statistics;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
}

}  // namespace kivml::testing
