#pragma once
// An evaluator's statistics (kivml/EvaluatorStatistics.h) as the tool shows them: a block of text for
// `kivml run --stats`, and JSON, which `kivml bench` writes in its report and reads back from a child's
// measurements. Times are in milliseconds.

#include <nlohmann/json.hpp>

#include <ostream>

#include "kivml/EvaluatorStatistics.h"

namespace kivml::cli {

class StatisticsFormat {
 public:
  using Json = nlohmann::ordered_json;

  static void Print(std::ostream& out, const EvaluatorStatistics& statistics);
  static Json ToJson(const EvaluatorStatistics& statistics);
  // The statistics ToJson wrote, to the nanosecond; throws nlohmann::json::exception for anything else.
  static EvaluatorStatistics FromJson(const Json& json);
};

}  // namespace kivml::cli
