#include "BenchRun.h"

#include <algorithm>

#include "kivml/EvaluatorOptions.h"

namespace kivml::cli {

const LoopResult* BenchSeries::At(size_t concurrency) const {
  const auto found = std::find_if(points.begin(), points.end(),
                                  [&](const BenchPoint& point) { return point.concurrency == concurrency; });
  return found == points.end() ? nullptr : &found->result;
}

std::string BenchConfiguration::LanesText() const {
  // The lanes asked for, and those in use where they differ (a GPU session runs one).
  if (lanesAsked == kFitMachineLanes) {
    return "auto (" + std::to_string(lanes) + ")";
  }
  return lanesAsked == lanes ? std::to_string(lanes)
                             : std::to_string(lanesAsked) + " (" + std::to_string(lanes) + ")";
}

}  // namespace kivml::cli
