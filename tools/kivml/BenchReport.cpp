#include "BenchReport.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <optional>
#include <sstream>

#include "ChildProcess.h"
#include "Formatting.h"
#include "OutputFile.h"
#include "StatisticsFormat.h"
#include "ToolError.h"
#include "kivml/EvaluatorOptions.h"

namespace kivml::cli {

namespace {

using Json = nlohmann::ordered_json;

std::string OnOff(bool on) {
  return on ? "on" : "off";
}

Json MeasurementJson(const LoopResult& result, size_t rowsPerCall) {
  const LatencyStats& latency = result.latency;
  return Json{{"requests", result.requests},
              {"calls", result.calls},
              {"rows_per_call", rowsPerCall},
              {"wall_seconds", result.wallSeconds},
              {"requests_per_second", result.RequestsPerSecond()},
              {"mean_ms", latency.MeanMs()},
              {"p50_ms", latency.PercentileMs(50)},
              {"p95_ms", latency.PercentileMs(95)},
              {"p99_ms", latency.PercentileMs(99)}};
}

// Rate and latencies; blanks when the load was not measured.
std::vector<std::string> MeasurementCells(const LoopResult* result) {
  if (result == nullptr) {
    return {"-", "", "", ""};
  }
  return {FormatFixed(result->RequestsPerSecond(), 1), FormatFixed(result->latency.PercentileMs(50), 3),
          FormatFixed(result->latency.PercentileMs(95), 3), FormatFixed(result->latency.PercentileMs(99), 3)};
}

// Queue waits, batch fill and padding of the library's evaluator over a measured load.
std::vector<std::string> StatisticsCells(const std::optional<EvaluatorStatistics>& statistics, bool batched) {
  if (!statistics) {
    return {"-", "", "", ""};
  }
  const auto ms = [](std::chrono::nanoseconds duration) {
    return FormatFixed(std::chrono::duration<double, std::milli>(duration).count(), 3);
  };
  return {ms(statistics->queueWait.p50), ms(statistics->queueWait.p99),
          batched ? FormatFixed(statistics->meanRowsPerBatch, 2) : "-",
          batched ? std::to_string(statistics->dummyRows) : "-"};
}

std::string Signed(double value, int decimals) {
  return (value >= 0 ? "+" : "") + FormatFixed(value, decimals);
}

// The raw reference a configuration is compared with: its ceiling with the library's options.
const BenchSeries* RawFor(const BenchRun& run, const BenchConfiguration& configuration) {
  const auto& raw = configuration.batched ? run.rawBatches : run.rawOneRow;
  return raw ? &*raw : nullptr;
}

const LoopResult* At(const std::optional<BenchSeries>& series, size_t concurrency) {
  return series ? series->At(concurrency) : nullptr;
}

double ThroughputRatio(const LoopResult& kivml, const LoopResult& raw) {
  const double rawRate = raw.RequestsPerSecond();
  return rawRate > 0.0 ? kivml.RequestsPerSecond() / rawRate : 0.0;
}

double P50DifferenceUs(const LoopResult& kivml, const LoopResult& raw) {
  return (kivml.latency.PercentileMs(50) - raw.latency.PercentileMs(50)) * 1e3;
}

Json LanesJson(unsigned lanes) {
  return lanes == kFitMachineLanes ? Json("auto") : Json(lanes);
}

Json SeriesJson(const BenchSeries& series) {
  Json results = Json::array();
  for (const BenchPoint& point : series.points) {
    Json row{{"concurrency", point.concurrency}};
    row.update(MeasurementJson(point.result, series.rowsPerCall));
    results.push_back(std::move(row));
  }
  return results;
}

// `text` inside single quotes for gnuplot, where a quote is written twice and nothing else needs escaping.
std::string GnuplotQuoted(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) {
    quoted += c == '\'' ? std::string("''") : std::string(1, c);
  }
  return quoted + "'";
}

std::filesystem::path Gnuplot() {
  const auto gnuplot = ChildProcess::FindOnPath("gnuplot");
  if (!gnuplot) {
    throw ToolError("--plot needs gnuplot (with the pngcairo terminal) on the PATH; install gnuplot");
  }
  return *gnuplot;
}

}  // namespace

void BenchReport::PrintSetup(std::ostream& out) const {
  std::vector<std::vector<std::string>> rows;
  rows.push_back({"model", mSetup.model});
  rows.push_back({"device", mSetup.gpuRequested ? "asked for the GPU (the library falls back to the CPU "
                                                  "without a hardware adapter); raw ONNX Runtime with the "
                                                  "library's options runs where the library runs"
                                                : "asked for the CPU"});
  rows.push_back({"requests", std::to_string(mSetup.requests) + " per run after " +
                                  std::to_string(mSetup.warmup) + " warm-up requests, seed " +
                                  std::to_string(mSetup.seed)});
  rows.push_back({"machine", std::to_string(mSetup.hardwareThreads) + " hardware threads"});
  std::string lanes;
  for (const unsigned asked : mSetup.lanes) {
    lanes += (lanes.empty() ? "" : ", ") +
             (asked == kFitMachineLanes ? std::string("auto (fits the machine)") : std::to_string(asked));
  }
  rows.push_back({"lanes", lanes});
  std::string spinning;
  for (const bool on : mSetup.spinning) {
    spinning += (spinning.empty() ? "" : ", ") + OnOff(on);
  }
  rows.push_back(
      {"spinning", spinning + (mSetup.spinning.size() > 1
                                   ? " (ONNX Runtime's shared pools; each setting in a process of its own)"
                                   : " (ONNX Runtime's shared pools)")});
  for (const BenchInput& input : mSetup.inputs) {
    rows.push_back({"input", input.name + "  " + input.typeName + "  " + FormatShape(input.shape) +
                                 (input.batchAxis ? " (one row per request)" : "")});
  }
  for (const ResolvedDim& dim : mSetup.freeDims) {
    rows.push_back({"free dim", dim.input + ":" + std::to_string(dim.axis) +
                                    (dim.symbol.empty() ? "" : " (" + dim.symbol + ")") + " = " +
                                    std::to_string(dim.size) + " from " + dim.source});
  }
  PrintColumns(out, rows, "");
}

void BenchReport::PrintTables(std::ostream& out) const {
  std::vector<std::vector<std::string>> rows;
  rows.push_back({"mode", "lanes", "spin", "conc", "|", "kivml req/s", "p50 ms", "p95 ms", "p99 ms", "|",
                  "raw req/s", "p50 ms", "p95 ms", "p99 ms", "|", "kivml/raw", "p50 diff us"});
  std::vector<std::vector<std::string>> statisticsRows{
      {"mode", "lanes", "spin", "conc", "|", "queue p50 ms", "queue p99 ms", "rows/batch", "dummy rows"}};
  std::string devices;
  size_t batchSize = 0;
  for (const BenchRun& run : mRuns) {
    for (const BenchConfiguration& configuration : run.configurations) {
      if (devices.find(configuration.device) == std::string::npos) {
        devices += (devices.empty() ? "" : ", ") + configuration.device;
      }
      batchSize = configuration.batched ? configuration.batchSize : batchSize;
      const BenchSeries* raw = RawFor(run, configuration);
      for (const BenchPoint& point : configuration.kivml.points) {
        std::vector<std::string> cells{configuration.ModeName(), configuration.LanesText(),
                                       OnOff(run.spinning), std::to_string(point.concurrency), "|"};
        std::vector<std::string> statisticsCells(cells);
        for (std::string& cell : StatisticsCells(point.statistics, configuration.batched)) {
          statisticsCells.push_back(std::move(cell));
        }
        statisticsRows.push_back(std::move(statisticsCells));
        for (std::string& cell : MeasurementCells(&point.result)) {
          cells.push_back(std::move(cell));
        }
        cells.push_back("|");
        const LoopResult* rawResult = raw != nullptr ? raw->At(point.concurrency) : nullptr;
        for (std::string& cell : MeasurementCells(rawResult)) {
          cells.push_back(std::move(cell));
        }
        cells.push_back("|");
        if (rawResult != nullptr) {
          cells.push_back(FormatFixed(ThroughputRatio(point.result, *rawResult), 3));
          cells.push_back(Signed(P50DifferenceUs(point.result, *rawResult), 1));
        }
        rows.push_back(std::move(cells));
      }
    }
  }
  if (rows.size() > 1) {
    out << "\nkivml on " << EscapeControlCharacters(devices)
        << ", one request per call, latency from queue to answer; raw: ONNX Runtime with the library's "
           "session options in the same run, one row per Run against unbatched"
        << (batchSize > 0 ? ", ready batches of " + std::to_string(batchSize) + " per Run against batched"
                          : "")
        << ", from as many client threads, latency of Run\n";
    PrintColumns(out, rows, "  ", "lllrlrrrrlrrrrlrr");
    out << "\nthe library's own statistics of each kivml load above, over its measured requests: time from "
           "queueing to the start of the prediction, real requests per batch, rows added to fill batches\n";
    PrintColumns(out, statisticsRows, "  ", "lllrlrrrr");
  }

  rows.clear();
  rows.push_back({"spin", "conc", "|", "one-row req/s", "p50 ms", "p95 ms", "p99 ms", "|", "batches rows/s",
                  "p50 ms", "p95 ms", "p99 ms"});
  size_t handBatch = 0;
  for (const BenchRun& run : mRuns) {
    handBatch = run.handBatches ? run.handBatches->rowsPerCall : handBatch;
    for (const BenchPoint& point : run.handOneRow.points) {
      std::vector<std::string> cells{OnOff(run.spinning), std::to_string(point.concurrency), "|"};
      for (std::string& cell : MeasurementCells(&point.result)) {
        cells.push_back(std::move(cell));
      }
      cells.push_back("|");
      for (std::string& cell : MeasurementCells(At(run.handBatches, point.concurrency))) {
        cells.push_back(std::move(cell));
      }
      rows.push_back(std::move(cells));
    }
  }
  if (rows.size() > 1) {
    out << "\nhand-written ONNX Runtime on the CPU: default session options (intra-op threads of its own), "
           "one "
           "session shared by the clients; one row per Run from as many client threads"
        << (handBatch > 0 ? ", and ready batches of " + std::to_string(handBatch) + " from one thread" : "")
        << "; spin: the setting of the run it was measured in\n";
    PrintColumns(out, rows, "  ", "lrlrrrrlrrrr");
  }
}

void BenchReport::PrintTargets(std::ostream& out) const {
  out << "\ntargets (each kivml configuration against the references measured in its own run)\n";
  std::vector<std::vector<std::string>> rows;
  for (const BenchTarget& target : BenchTargets::Compute(mRuns)) {
    if (!target.measured) {
      rows.push_back({target.name, "not measured", "", "", target.requirement});
      continue;
    }
    std::string value;
    std::string needed;
    std::string detail;
    if (target.atMost) {
      value = Signed(target.value, 1) + " us";
      needed = "<= " + FormatFixed(target.threshold, 0) + " us";
      detail = target.configuration + ": p50 " + FormatFixed(target.kivmlValue, 3) + " ms; " +
               target.reference + ": p50 " + FormatFixed(target.referenceValue, 3) + " ms";
    } else {
      value = FormatFixed(target.value, 3) + " x";
      needed = ">= " + FormatFixed(target.threshold, 2);
      detail = target.configuration + ": " + FormatFixed(target.kivmlValue, 1) + " req/s; " +
               target.reference + ": " + FormatFixed(target.referenceValue, 1) + " req/s";
    }
    rows.push_back({target.name, value, needed, target.passed ? "pass" : "MISS", detail});
  }
  PrintColumns(out, rows, "  ", "lrll");
}

void BenchReport::WriteJson(const std::filesystem::path& file) const {
  Json json;
  json["model"] = mSetup.model;
  json["device_requested"] = mSetup.gpuRequested ? "gpu" : "cpu";
  json["hardware_concurrency"] = mSetup.hardwareThreads;
  json["requests"] = mSetup.requests;
  json["warmup"] = mSetup.warmup;
  json["seed"] = mSetup.seed;
  json["lanes"] = Json::array();
  for (const unsigned lanes : mSetup.lanes) {
    json["lanes"].push_back(LanesJson(lanes));
  }
  json["spinning"] = Json::array();
  for (const bool on : mSetup.spinning) {
    json["spinning"].push_back(OnOff(on));
  }
  json["inputs"] = Json::array();
  for (const BenchInput& input : mSetup.inputs) {
    Json dims = Json::array();
    for (const ResolvedDim& dim : mSetup.freeDims) {
      if (dim.input == input.name) {
        dims.push_back(
            {{"axis", dim.axis}, {"name", dim.symbol}, {"size", dim.size}, {"source", dim.source}});
      }
    }
    json["inputs"].push_back({{"name", input.name},
                              {"dtype", input.typeName},
                              {"shape", input.shape},
                              {"batch_axis", input.batchAxis},
                              {"free_dims", std::move(dims)}});
  }

  json["configurations"] = Json::array();
  json["references"] = Json::array();
  for (const BenchRun& run : mRuns) {
    for (const BenchConfiguration& configuration : run.configurations) {
      const BenchSeries* raw = RawFor(run, configuration);
      Json results = Json::array();
      for (const BenchPoint& point : configuration.kivml.points) {
        const LoopResult* rawResult = raw != nullptr ? raw->At(point.concurrency) : nullptr;
        Json row{{"concurrency", point.concurrency}, {"kivml", MeasurementJson(point.result, 1)}};
        row["statistics"] = point.statistics ? StatisticsFormat::ToJson(*point.statistics) : Json(nullptr);
        row["raw"] = rawResult != nullptr ? MeasurementJson(*rawResult, raw->rowsPerCall) : Json(nullptr);
        row["throughput_ratio"] =
            rawResult != nullptr ? Json(ThroughputRatio(point.result, *rawResult)) : Json(nullptr);
        row["p50_difference_us"] =
            rawResult != nullptr ? Json(P50DifferenceUs(point.result, *rawResult)) : Json(nullptr);
        results.push_back(std::move(row));
      }
      json["configurations"].push_back({{"mode", configuration.ModeName()},
                                        {"lanes_asked", LanesJson(configuration.lanesAsked)},
                                        {"lanes", configuration.lanes},
                                        {"spinning", run.spinning},
                                        {"batch_size", configuration.batchSize},
                                        {"device", configuration.device},
                                        {"results", std::move(results)}});
    }
    const auto reference = [&](const std::string& name, const std::string& options,
                               const std::string& threads, const BenchSeries& series) {
      json["references"].push_back({{"name", name},
                                    {"session_options", options},
                                    {"client_threads", threads},
                                    {"spinning", run.spinning},
                                    {"rows_per_call", series.rowsPerCall},
                                    {"results", SeriesJson(series)}});
    };
    if (run.rawOneRow) {
      reference("raw one-row", "library", "concurrency", *run.rawOneRow);
    }
    if (run.rawBatches) {
      reference("raw batches", "library", "concurrency", *run.rawBatches);
    }
    reference("hand-written one-row", "default", "concurrency", run.handOneRow);
    if (run.handBatches) {
      reference("hand-written batches", "default", "one", *run.handBatches);
    }
  }

  Json targets = Json::object();
  for (const BenchTarget& target : BenchTargets::Compute(mRuns)) {
    Json entry{{"name", target.name},
               {"requirement", target.requirement},
               {"threshold", target.threshold},
               {"at_most", target.atMost},
               {"measured", target.measured}};
    if (target.measured) {
      entry["passed"] = target.passed;
      entry["value"] = target.value;
      entry["configuration"] = target.configuration;
      entry["kivml"] = target.kivmlValue;
      entry["reference"] = target.reference;
      entry["reference_value"] = target.referenceValue;
    }
    targets[target.key] = std::move(entry);
  }
  json["targets"] = std::move(targets);

  OutputFile::Replace(file, [&](std::ostream& out) { out << json.dump(2) << '\n'; });
}

void BenchReport::RequireGnuplot() {
  Gnuplot();
}

void BenchReport::WritePlot(const std::filesystem::path& file) const {
  const std::filesystem::path gnuplot = Gnuplot();
  OutputFile output(file);
  struct Line {
    std::string title;
    const BenchSeries* series;
    bool reference;
  };
  std::vector<Line> lines;
  for (const BenchRun& run : mRuns) {
    for (const BenchConfiguration& configuration : run.configurations) {
      lines.push_back(
          {"kivml " + BenchTargets::Describe(configuration, run.spinning), &configuration.kivml, false});
    }
  }
  for (const BenchRun& run : mRuns) {
    const std::string in = mRuns.size() > 1 ? " (spinning " + OnOff(run.spinning) + " run)" : "";
    lines.push_back({"hand-written one-row" + in, &run.handOneRow, true});
    if (run.handBatches) {
      lines.push_back({"hand-written batches of " + std::to_string(run.handBatches->rowsPerCall) +
                           " from one thread" + in,
                       &*run.handBatches, true});
    }
  }
  size_t widest = 1;
  for (const Line& line : lines) {
    for (const BenchPoint& point : line.series->points) {
      widest = std::max(widest, point.concurrency);
    }
  }

  std::ostringstream script;
  script << "set terminal pngcairo noenhanced size 1400,800 font 'sans,10'\n"
         << "set output " << GnuplotQuoted(output.WritePath().string()) << '\n'
         << "set multiplot layout 1,2 title " << GnuplotQuoted("kivml bench: " + mSetup.model) << '\n'
         << "set logscale x 2\nset xrange [0.7:" << static_cast<double>(widest) * 1.4 << "]\n"
         << "set xlabel 'concurrency (client threads)'\nset grid\nset key below font ',8'\n";
  for (size_t index = 0; index < lines.size(); ++index) {
    script << "$line" << index << " << EOD\n";
    for (const BenchPoint& point : lines[index].series->points) {
      script << point.concurrency << ' ' << point.result.RequestsPerSecond() << ' '
             << point.result.latency.PercentileMs(50) << '\n';
    }
    script << "EOD\n";
  }
  const auto plot = [&](int column) {
    std::string separator = "plot ";
    for (size_t index = 0; index < lines.size(); ++index) {
      script << separator << "$line" << index << " using 1:" << column << " with linespoints "
             << (lines[index].reference ? "dt 2" : "lw 2") << " title " << GnuplotQuoted(lines[index].title);
      separator = ", ";
    }
    script << '\n';
  };
  script << "set title 'throughput'\nset ylabel 'requests/s (rows/s)'\n";
  plot(2);
  script << "set title 'p50 latency'\nset ylabel 'ms'\nset logscale y\n";
  plot(3);
  script << "unset multiplot\n";

  if (ChildProcess::Run(gnuplot, {}, script.str()) != 0) {
    throw ToolError("gnuplot could not draw '" + file.string() + "' (its messages are above)");
  }
  output.Commit();
}

}  // namespace kivml::cli
