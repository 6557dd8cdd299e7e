#pragma once
// The targets `kivml bench` checks its measurements against. Each kivml configuration is compared with the
// references measured in its own run (same process, same rounds), so that drift between the runs of the
// two spinning settings does not count; a target takes the best configuration. A target whose
// concurrency level or modes were not measured is "not measured", not missed.

#include <cstddef>
#include <string>
#include <vector>

#include "BenchRun.h"

namespace kivml::cli {

struct BenchTarget {
  std::string key;          // for JSON: "clients_8", "batched_alone", "unbatched_overhead"
  std::string name;         // "8 clients"
  std::string requirement;  // what passes, in words with its threshold
  // A ratio that must be at least the threshold, or (atMost) a p50 difference in microseconds that must be
  // at most the threshold.
  double threshold = 0.0;
  bool atMost = false;
  bool measured = false;
  bool passed = false;
  double value = 0.0;
  std::string configuration;  // the kivml configuration that did best: "batched, lanes 1, spinning off"
  double kivmlValue = 0.0;    // its requests per second, or p50 in milliseconds
  std::string reference;      // what it was compared with
  double referenceValue = 0.0;
};

class BenchTargets {
 public:
  // With many clients, kivml's best over the better of hand-written one-row Runs from as many threads and
  // hand-written ready batches from one thread.
  static constexpr double kManyClientsRatio = 1.0;
  // With few clients, kivml's best over hand-written one-row Runs from as many threads.
  static constexpr double kFewClientsRatio = 0.95;
  // The batched evaluator alone with one client, over the unbatched one of the same lanes and spinning.
  static constexpr double kBatchedAloneRatio = 0.9;
  // The unbatched evaluator's p50 at one client over raw one-row Runs with the library's options.
  static constexpr double kUnbatchedOverheadUs = 15.0;

  static std::vector<BenchTarget> Compute(const std::vector<BenchRun>& runs);
  // "batched, lanes auto (2), spinning on"
  static std::string Describe(const BenchConfiguration& configuration, bool spinning);
};

}  // namespace kivml::cli
