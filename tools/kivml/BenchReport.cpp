#include "BenchReport.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <system_error>

#include "Formatting.h"
#include "OutputFile.h"
#include "ToolError.h"

#ifdef _WIN32
#define KIVML_POPEN _popen
#define KIVML_PCLOSE _pclose
#else
#include <sys/wait.h>
#define KIVML_POPEN popen
#define KIVML_PCLOSE pclose
#endif

namespace kivml::cli {

namespace {

using Json = nlohmann::ordered_json;

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

std::vector<std::string> MeasurementCells(const LoopResult& result) {
  return {FormatFixed(result.RequestsPerSecond(), 1), FormatFixed(result.latency.PercentileMs(50), 3),
          FormatFixed(result.latency.PercentileMs(95), 3), FormatFixed(result.latency.PercentileMs(99), 3)};
}

std::string Signed(double value, int decimals) {
  return (value >= 0 ? "+" : "") + FormatFixed(value, decimals);
}

// `text` inside single quotes for gnuplot, where a quote is written twice and nothing else needs escaping.
std::string GnuplotQuoted(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) {
    quoted += c == '\'' ? std::string("''") : std::string(1, c);
  }
  return quoted + "'";
}

std::optional<std::filesystem::path> FindOnPath(const std::string& program) {
  const char* path = std::getenv("PATH");
  if (path == nullptr) {
    return std::nullopt;
  }
#ifdef _WIN32
  const char separator = ';';
  const std::string fileName = program + ".exe";
#else
  const char separator = ':';
  const std::string fileName = program;
#endif
  std::stringstream directories(path);
  std::string directory;
  while (std::getline(directories, directory, separator)) {
    std::error_code error;
    const std::filesystem::path candidate =
        std::filesystem::path(directory.empty() ? "." : directory) / fileName;
    if (std::filesystem::is_regular_file(candidate, error)) {
      return candidate;
    }
  }
  return std::nullopt;
}

std::filesystem::path Gnuplot() {
  const auto gnuplot = FindOnPath("gnuplot");
  if (!gnuplot) {
    throw ToolError("--plot needs gnuplot (with the pngcairo terminal) on the PATH; install gnuplot");
  }
  return *gnuplot;
}

}  // namespace

double BenchRow::ThroughputRatio() const {
  const double rawRate = raw.RequestsPerSecond();
  return rawRate > 0.0 ? kivml.RequestsPerSecond() / rawRate : 0.0;
}

double BenchRow::P50DifferenceUs() const {
  return (kivml.latency.PercentileMs(50) - raw.latency.PercentileMs(50)) * 1e3;
}

const BenchMode* BenchReport::FindMode(const std::string& name) const {
  const auto found =
      std::find_if(mModes.begin(), mModes.end(), [&](const BenchMode& mode) { return mode.name == name; });
  return found == mModes.end() ? nullptr : &*found;
}

std::optional<BenchReport::BatchedTarget> BenchReport::ComputeBatchedTarget() const {
  const BenchMode* batched = FindMode("batched");
  if (batched == nullptr) {
    return std::nullopt;
  }
  const BenchRow* rawSingle = nullptr;
  const BenchRow* best = nullptr;
  for (const BenchRow& row : batched->rows) {
    if (row.concurrency == 1) {
      rawSingle = &row;
    }
    if (row.concurrency >= batched->batchSize &&
        (best == nullptr || row.kivml.RequestsPerSecond() > best->kivml.RequestsPerSecond())) {
      best = &row;
    }
  }
  if (rawSingle == nullptr || best == nullptr || rawSingle->raw.RequestsPerSecond() <= 0.0) {
    return std::nullopt;
  }
  const double rawRate = rawSingle->raw.RequestsPerSecond();
  return BatchedTarget{best->kivml.RequestsPerSecond() / rawRate, best->kivml.RequestsPerSecond(),
                       best->concurrency, rawRate};
}

std::optional<BenchReport::UnbatchedTarget> BenchReport::ComputeUnbatchedTarget() const {
  const BenchMode* unbatched = FindMode("unbatched");
  if (unbatched == nullptr) {
    return std::nullopt;
  }
  for (const BenchRow& row : unbatched->rows) {
    if (row.concurrency == 1) {
      return UnbatchedTarget{row.P50DifferenceUs(), row.kivml.latency.PercentileMs(50),
                             row.raw.latency.PercentileMs(50)};
    }
  }
  return std::nullopt;
}

void BenchReport::PrintSetup(std::ostream& out) const {
  std::vector<std::vector<std::string>> rows;
  rows.push_back({"model", mSetup.model});
  rows.push_back({"device", mSetup.gpuRequested ? "asked for the GPU (the library falls back to the CPU "
                                                  "without a hardware adapter); raw ONNX Runtime runs "
                                                  "where the library runs"
                                                : "asked for the CPU"});
  rows.push_back({"requests", std::to_string(mSetup.requests) + " per run after " +
                                  std::to_string(mSetup.warmup) + " warm-up requests, seed " +
                                  std::to_string(mSetup.seed)});
  rows.push_back({"machine", std::to_string(mSetup.hardwareThreads) + " hardware threads"});
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
  for (const BenchMode& mode : mModes) {
    out << '\n'
        << mode.name << " on " << EscapeControlCharacters(mode.device) << ": " << mode.batchSize
        << (mode.batchSize == 1 ? " row" : " rows")
        << " per run; kivml: one request per call, latency from queue to answer; raw: "
        << (mode.batchSize == 1 ? "one row" : "perfect batches") << " per Run, latency of Run\n";
    std::vector<std::vector<std::string>> rows;
    rows.push_back({"conc", "|", "kivml req/s", "p50 ms", "p95 ms", "p99 ms", "|", "raw req/s", "p50 ms",
                    "p95 ms", "p99 ms", "|", "kivml/raw", "p50 diff us"});
    for (const BenchRow& row : mode.rows) {
      std::vector<std::string> cells{std::to_string(row.concurrency), "|"};
      for (const std::string& cell : MeasurementCells(row.kivml)) {
        cells.push_back(cell);
      }
      cells.push_back("|");
      for (const std::string& cell : MeasurementCells(row.raw)) {
        cells.push_back(cell);
      }
      cells.push_back("|");
      cells.push_back(FormatFixed(row.ThroughputRatio(), 3));
      cells.push_back(Signed(row.P50DifferenceUs(), 1));
      rows.push_back(std::move(cells));
    }
    PrintColumns(out, rows, "  ", "rlrrrrlrrrrlrr");
  }
}

void BenchReport::PrintTargets(std::ostream& out) const {
  out << "\ntargets\n";
  const BenchMode* batched = FindMode("batched");
  if (const auto target = ComputeBatchedTarget()) {
    out << "  (a) batched:   best kivml at conc >= " << batched->batchSize << ": "
        << FormatFixed(target->kivmlRequestsPerSecond, 1) << " req/s (conc " << target->kivmlConcurrency
        << ") = " << FormatFixed(target->ratio, 3) << " x raw perfect batches at conc 1 ("
        << FormatFixed(target->rawRequestsPerSecond, 1) << " req/s)\n";
  } else if (batched == nullptr) {
    out << "  (a) batched:   n/a (batched mode not run)\n";
  } else {
    out << "  (a) batched:   n/a (needs concurrency 1 and a concurrency >= the batch size "
        << batched->batchSize << ")\n";
  }
  if (const auto target = ComputeUnbatchedTarget()) {
    out << "  (b) unbatched: kivml p50 at conc 1 is " << FormatFixed(target->kivmlP50Ms, 3)
        << " ms, raw batch-1 p50 " << FormatFixed(target->rawP50Ms, 3)
        << " ms: " << Signed(target->differenceUs, 1) << " us\n";
  } else {
    out << "  (b) unbatched: n/a ("
        << (FindMode("unbatched") == nullptr ? "unbatched mode not run" : "needs concurrency 1") << ")\n";
  }
}

void BenchReport::WriteJson(const std::filesystem::path& file) const {
  Json json;
  json["model"] = mSetup.model;
  json["device_requested"] = mSetup.gpuRequested ? "gpu" : "cpu";
  json["hardware_concurrency"] = mSetup.hardwareThreads;
  json["requests"] = mSetup.requests;
  json["warmup"] = mSetup.warmup;
  json["seed"] = mSetup.seed;
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
  json["modes"] = Json::array();
  for (const BenchMode& mode : mModes) {
    Json results = Json::array();
    for (const BenchRow& row : mode.rows) {
      results.push_back({{"concurrency", row.concurrency},
                         {"kivml", MeasurementJson(row.kivml, 1)},
                         {"raw", MeasurementJson(row.raw, mode.batchSize)},
                         {"throughput_ratio", row.ThroughputRatio()},
                         {"p50_difference_us", row.P50DifferenceUs()}});
    }
    json["modes"].push_back({{"mode", mode.name},
                             {"device", mode.device},
                             {"batch_size", mode.batchSize},
                             {"results", std::move(results)}});
  }
  Json targets;
  if (const auto target = ComputeBatchedTarget()) {
    targets["batched"] = {{"throughput_ratio", target->ratio},
                          {"kivml_requests_per_second", target->kivmlRequestsPerSecond},
                          {"kivml_concurrency", target->kivmlConcurrency},
                          {"raw_requests_per_second", target->rawRequestsPerSecond}};
  } else {
    targets["batched"] = nullptr;
  }
  if (const auto target = ComputeUnbatchedTarget()) {
    targets["unbatched"] = {{"p50_difference_us", target->differenceUs},
                            {"kivml_p50_ms", target->kivmlP50Ms},
                            {"raw_p50_ms", target->rawP50Ms}};
  } else {
    targets["unbatched"] = nullptr;
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
  size_t widest = 1;
  for (const BenchMode& mode : mModes) {
    for (const BenchRow& row : mode.rows) {
      widest = std::max(widest, row.concurrency);
    }
  }
  std::ostringstream script;
  script << "set terminal pngcairo noenhanced size 1200,500 font 'sans,10'\n"
         << "set output " << GnuplotQuoted(output.WritePath().string()) << '\n'
         << "set multiplot layout 1,2 title " << GnuplotQuoted("kivml bench: " + mSetup.model) << '\n'
         << "set logscale x 2\nset xrange [0.7:" << static_cast<double>(widest) * 1.4 << "]\n"
         << "set xlabel 'concurrency (client threads)'\nset grid\nset key top left\n";
  for (const BenchMode& mode : mModes) {
    script << "$" << mode.name << " << EOD\n";
    for (const BenchRow& row : mode.rows) {
      script << row.concurrency << ' ' << row.kivml.RequestsPerSecond() << ' ' << row.raw.RequestsPerSecond()
             << ' ' << row.kivml.latency.PercentileMs(50) << ' ' << row.raw.latency.PercentileMs(50) << '\n';
    }
    script << "EOD\n";
  }
  const auto plot = [&](int kivmlColumn, int rawColumn) {
    std::string separator = "plot ";
    for (const BenchMode& mode : mModes) {
      script << separator << "$" << mode.name << " using 1:" << kivmlColumn
             << " with linespoints lw 2 title 'kivml " << mode.name << "', $" << mode.name
             << " using 1:" << rawColumn << " with linespoints dt 2 title 'raw " << mode.name << "'";
      separator = ", ";
    }
    script << '\n';
  };
  script << "set title 'throughput'\nset ylabel 'requests/s'\n";
  plot(2, 3);
  script << "set title 'p50 latency'\nset ylabel 'ms'\nset logscale y\n";
  plot(4, 5);
  script << "unset multiplot\n";

  FILE* pipe = KIVML_POPEN(("\"" + gnuplot.string() + "\"").c_str(), "w");
  if (pipe == nullptr) {
    throw ToolError("cannot start gnuplot (" + gnuplot.string() + ")");
  }
  const std::string text = script.str();
  std::fwrite(text.data(), 1, text.size(), pipe);
  const int status = KIVML_PCLOSE(pipe);
#ifdef _WIN32
  const bool succeeded = status == 0;
#else
  const bool succeeded = status != -1 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
#endif
  if (!succeeded) {
    throw ToolError("gnuplot could not draw '" + file.string() + "' (its messages are above)");
  }
  output.Commit();
}

}  // namespace kivml::cli
