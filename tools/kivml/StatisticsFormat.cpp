#include "StatisticsFormat.h"

#include <chrono>
#include <cmath>
#include <string>
#include <vector>

#include "Formatting.h"

namespace kivml::cli {

namespace {

using Durations = EvaluatorStatistics::Durations;

double Ms(std::chrono::nanoseconds duration) {
  return std::chrono::duration<double, std::milli>(duration).count();
}

// Milliseconds as written back to nanoseconds: ToJson's doubles hold every nanosecond count exactly
// enough to round back.
std::chrono::nanoseconds FromMs(const StatisticsFormat::Json& json) {
  return std::chrono::nanoseconds(std::llround(json.get<double>() * 1e6));
}

StatisticsFormat::Json DurationsJson(const Durations& durations) {
  return {{"count", durations.count},    {"mean_ms", Ms(durations.mean)}, {"p50_ms", Ms(durations.p50)},
          {"p95_ms", Ms(durations.p95)}, {"p99_ms", Ms(durations.p99)},   {"max_ms", Ms(durations.max)}};
}

Durations ReadDurations(const StatisticsFormat::Json& json) {
  Durations durations;
  durations.count = json.at("count").get<uint64_t>();
  durations.mean = FromMs(json.at("mean_ms"));
  durations.p50 = FromMs(json.at("p50_ms"));
  durations.p95 = FromMs(json.at("p95_ms"));
  durations.p99 = FromMs(json.at("p99_ms"));
  durations.max = FromMs(json.at("max_ms"));
  return durations;
}

std::vector<std::string> DurationCells(const std::string& name, const Durations& durations) {
  return {name,
          std::to_string(durations.count),
          FormatFixed(Ms(durations.mean), 3),
          FormatFixed(Ms(durations.p50), 3),
          FormatFixed(Ms(durations.p95), 3),
          FormatFixed(Ms(durations.p99), 3),
          FormatFixed(Ms(durations.max), 3)};
}

}  // namespace

void StatisticsFormat::Print(std::ostream& out, const EvaluatorStatistics& statistics) {
  if (!statistics.valid) {
    out << "no statistics: the evaluator is not the library's\n";
    return;
  }
  out << "statistics over " << FormatFixed(Ms(statistics.windowSpan), 3) << " ms: " << statistics.queued
      << " queued, " << statistics.answered << " answered, " << statistics.failed << " failed, "
      << statistics.terminated << " terminated, " << statistics.abandoned << " abandoned\n";
  for (const auto& [result, count] : statistics.failuresByResult) {
    out << "  failed with " << FormatResultCode(result) << ": " << count << '\n';
  }
  std::vector<std::vector<std::string>> rows{{"", "count", "mean ms", "p50 ms", "p95 ms", "p99 ms", "max ms"},
                                             DurationCells("queue wait", statistics.queueWait),
                                             DurationCells("prediction", statistics.prediction),
                                             DurationCells("completion", statistics.completion)};
  if (statistics.batches > 0) {
    rows.push_back(DurationCells("fill wait", statistics.fillWait));
  }
  PrintColumns(out, rows, "  ", "lrrrrrr");
  if (statistics.batches > 0) {
    std::string sizes;
    for (const auto& size : statistics.rowsPerBatch) {
      sizes +=
          (sizes.empty() ? "" : ", ") + std::to_string(size.batches) + " of " + std::to_string(size.rows);
    }
    out << "  " << statistics.batches << (statistics.batches == 1 ? " batch" : " batches") << ", "
        << FormatFixed(statistics.meanRowsPerBatch, 2) << " rows per batch (" << sizes << "), "
        << statistics.dummyRows << " dummy rows\n";
  }
  for (size_t lane = 0; lane < statistics.lanes.size(); ++lane) {
    out << "  lane " << lane + 1 << ": predicting " << FormatFixed(Ms(statistics.lanes[lane].predicting), 3)
        << " ms, " << FormatFixed(statistics.lanes[lane].busyShare * 100.0, 1) << "% of the window\n";
  }
}

StatisticsFormat::Json StatisticsFormat::ToJson(const EvaluatorStatistics& statistics) {
  Json failures = Json::array();
  for (const auto& [result, count] : statistics.failuresByResult) {
    failures.push_back({{"result", FormatResultCode(result)}, {"count", count}});
  }
  Json rows = Json::array();
  for (const auto& size : statistics.rowsPerBatch) {
    rows.push_back({{"rows", size.rows}, {"batches", size.batches}});
  }
  Json lanes = Json::array();
  for (const auto& lane : statistics.lanes) {
    lanes.push_back({{"predicting_ms", Ms(lane.predicting)}, {"busy_share", lane.busyShare}});
  }
  return {{"window_ms", Ms(statistics.windowSpan)},
          {"queued", statistics.queued},
          {"answered", statistics.answered},
          {"failed", statistics.failed},
          {"terminated", statistics.terminated},
          {"abandoned", statistics.abandoned},
          {"failures", std::move(failures)},
          {"queue_wait", DurationsJson(statistics.queueWait)},
          {"prediction", DurationsJson(statistics.prediction)},
          {"completion", DurationsJson(statistics.completion)},
          {"batches", statistics.batches},
          {"mean_rows_per_batch", statistics.meanRowsPerBatch},
          {"rows_per_batch", std::move(rows)},
          {"dummy_rows", statistics.dummyRows},
          {"fill_wait", DurationsJson(statistics.fillWait)},
          {"lanes", std::move(lanes)}};
}

EvaluatorStatistics StatisticsFormat::FromJson(const Json& json) {
  EvaluatorStatistics statistics;
  statistics.valid = true;
  statistics.windowSpan = FromMs(json.at("window_ms"));
  statistics.queued = json.at("queued").get<uint64_t>();
  statistics.answered = json.at("answered").get<uint64_t>();
  statistics.failed = json.at("failed").get<uint64_t>();
  statistics.terminated = json.at("terminated").get<uint64_t>();
  statistics.abandoned = json.at("abandoned").get<uint64_t>();
  for (const Json& failure : json.at("failures")) {
    const std::string code = failure.at("result").get<std::string>();
    statistics.failuresByResult[static_cast<int>(std::stoul(code, nullptr, 16))] =
        failure.at("count").get<uint64_t>();
  }
  statistics.queueWait = ReadDurations(json.at("queue_wait"));
  statistics.prediction = ReadDurations(json.at("prediction"));
  statistics.completion = ReadDurations(json.at("completion"));
  statistics.batches = json.at("batches").get<uint64_t>();
  statistics.meanRowsPerBatch = json.at("mean_rows_per_batch").get<double>();
  for (const Json& size : json.at("rows_per_batch")) {
    statistics.rowsPerBatch.push_back({size.at("rows").get<size_t>(), size.at("batches").get<uint64_t>()});
  }
  statistics.dummyRows = json.at("dummy_rows").get<uint64_t>();
  statistics.fillWait = ReadDurations(json.at("fill_wait"));
  for (const Json& lane : json.at("lanes")) {
    statistics.lanes.push_back({FromMs(lane.at("predicting_ms")), lane.at("busy_share").get<double>()});
  }
  return statistics;
}

}  // namespace kivml::cli
