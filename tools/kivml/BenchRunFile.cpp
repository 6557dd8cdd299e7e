#include "BenchRunFile.h"

#include <nlohmann/json.hpp>

#include <fstream>
#include <stdexcept>

#include "OutputFile.h"
#include "StatisticsFormat.h"
#include "ToolError.h"

namespace kivml::cli {

namespace {

using Json = nlohmann::ordered_json;

// Bumped whenever the layout changes: parent and child are the same program, but a stale file must not
// pass for a fresh one.
constexpr int kFormat = 2;

Json SeriesJson(const BenchSeries& series) {
  Json points = Json::array();
  for (const BenchPoint& point : series.points) {
    points.push_back(
        {{"concurrency", point.concurrency},
         {"requests", point.result.requests},
         {"calls", point.result.calls},
         {"wall_seconds", point.result.wallSeconds},
         {"latencies_s", point.result.latency.SortedSeconds()},
         {"statistics", point.statistics ? StatisticsFormat::ToJson(*point.statistics) : Json(nullptr)}});
  }
  return {{"rows_per_call", series.rowsPerCall}, {"points", std::move(points)}};
}

Json OptionalSeriesJson(const std::optional<BenchSeries>& series) {
  return series ? SeriesJson(*series) : Json(nullptr);
}

BenchSeries ReadSeries(const Json& json) {
  BenchSeries series;
  series.rowsPerCall = json.at("rows_per_call").get<size_t>();
  for (const Json& point : json.at("points")) {
    BenchPoint read;
    read.concurrency = point.at("concurrency").get<size_t>();
    read.result.requests = point.at("requests").get<size_t>();
    read.result.calls = point.at("calls").get<size_t>();
    read.result.wallSeconds = point.at("wall_seconds").get<double>();
    read.result.latency = LatencyStats(point.at("latencies_s").get<std::vector<double>>());
    if (const Json& statistics = point.at("statistics"); !statistics.is_null()) {
      read.statistics = StatisticsFormat::FromJson(statistics);
    }
    series.points.push_back(std::move(read));
  }
  return series;
}

std::optional<BenchSeries> ReadOptionalSeries(const Json& json) {
  return json.is_null() ? std::nullopt : std::optional<BenchSeries>(ReadSeries(json));
}

}  // namespace

void BenchRunFile::Write(const std::filesystem::path& file, const BenchRun& run) {
  Json configurations = Json::array();
  for (const BenchConfiguration& configuration : run.configurations) {
    configurations.push_back({{"batched", configuration.batched},
                              {"lanes_asked", configuration.lanesAsked},
                              {"lanes", configuration.lanes},
                              {"batch_size", configuration.batchSize},
                              {"device", configuration.device},
                              {"kivml", SeriesJson(configuration.kivml)}});
  }
  const Json json{{"format", kFormat},
                  {"spinning", run.spinning},
                  {"configurations", std::move(configurations)},
                  {"raw_one_row", OptionalSeriesJson(run.rawOneRow)},
                  {"raw_batches", OptionalSeriesJson(run.rawBatches)},
                  {"hand_one_row", SeriesJson(run.handOneRow)},
                  {"hand_batches", OptionalSeriesJson(run.handBatches)}};
  OutputFile::Replace(file, [&](std::ostream& out) { out << json.dump() << '\n'; });
}

BenchRun BenchRunFile::Read(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  if (!in) {
    throw ToolError("cannot read the measurements in '" + file.string() + "'");
  }
  try {
    const Json json = Json::parse(in);
    if (json.at("format").get<int>() != kFormat) {
      throw ToolError("the measurements in '" + file.string() + "' are of another version of kivml");
    }
    BenchRun run;
    run.spinning = json.at("spinning").get<bool>();
    for (const Json& configuration : json.at("configurations")) {
      BenchConfiguration read;
      read.batched = configuration.at("batched").get<bool>();
      read.lanesAsked = configuration.at("lanes_asked").get<unsigned>();
      read.lanes = configuration.at("lanes").get<size_t>();
      read.batchSize = configuration.at("batch_size").get<size_t>();
      read.device = configuration.at("device").get<std::string>();
      read.kivml = ReadSeries(configuration.at("kivml"));
      run.configurations.push_back(std::move(read));
    }
    run.rawOneRow = ReadOptionalSeries(json.at("raw_one_row"));
    run.rawBatches = ReadOptionalSeries(json.at("raw_batches"));
    run.handOneRow = ReadSeries(json.at("hand_one_row"));
    run.handBatches = ReadOptionalSeries(json.at("hand_batches"));
    return run;
  } catch (const nlohmann::json::exception& error) {
    throw ToolError("the measurements in '" + file.string() + "' are unreadable: " + error.what());
  } catch (const std::logic_error& error) {  // a result code that is not one
    throw ToolError("the measurements in '" + file.string() + "' are unreadable: " + error.what());
  }
}

}  // namespace kivml::cli
