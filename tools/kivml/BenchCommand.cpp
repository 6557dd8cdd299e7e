#include "BenchCommand.h"

#include <boost/algorithm/string/split.hpp>

#include <algorithm>
#include <iostream>
#include <set>
#include <thread>

#include "CLI11Include.h"
#include "Formatting.h"
#include "ModelSignature.h"
#include "OutputFile.h"
#include "ProgressBar.h"
#include "RawOrtSession.h"
#include "ToolError.h"
#include "WholeNumberValidator.h"
#include "kivml/CreatePreferredEvaluator.h"

namespace kivml::cli {

namespace {

// Seeds of the raw clients' inputs, apart from the kivml clients' (seed + client) by more than any
// concurrency.
constexpr uint64_t kRawSeedOffset = 1'000'003;
// Full batches queued at once before anything is measured: until the evaluator has timed a few runs it
// waits long for latecomers to fill a batch, which would otherwise dominate the first warm-up.
constexpr size_t kPrimingBatches = 8;
// The measured requests of each side are split into this many rounds, kivml and raw taking turns, so that
// a machine whose speed drifts during the run (shared, throttled) slows both sides alike.
constexpr size_t kRounds = 4;
constexpr size_t kMostRequests = 100'000'000;
constexpr size_t kMostClients = 4096;

void Prime(IMLEvaluator& evaluator, const utility::FeatureContainerVector& request, size_t batchSize) {
  std::vector<kivcore::async::Future<utility::FeatureContainerVector>> answers;
  for (size_t i = 0; i < kPrimingBatches * batchSize; ++i) {
    answers.push_back(evaluator.QueueFeatures(utility::FeatureContainerVector(request)));
  }
  for (const auto& answer : answers) {
    answer.Wait();
    answer.Get();
  }
}

}  // namespace

CLI::App* BenchCommand::Register(CLI::App& app) {
  CLI::App* command = app.add_subcommand(
      "bench", "Measure throughput and latency against raw ONNX Runtime under client load");
  command->add_option("model", mModel, "The ONNX model")->required()->type_name("MODEL.onnx");
  // Whole numbers first: the range checks alone would take "-1" for 2^64 - 1, as CLI11 converts it.
  command->add_option("--requests,-n", mRequests, "Requests per measured run")
      ->capture_default_str()
      ->check(WholeNumberValidator())
      ->check(CLI::Range(size_t{1}, kMostRequests));
  // Split here rather than by CLI11, which drops empty items ("1,,4") without a word.
  command
      ->add_option_function<std::vector<std::string>>(
          "--concurrency,-c",
          [this](const std::vector<std::string>& lists) { mConcurrency = ParseConcurrency(lists); },
          "Client thread counts, comma-separated, each once")
      ->default_str("1,4,16,64")
      ->type_name("N,N,...");
  auto* batched = command->add_flag("--batched", mBatched, "Only the batching evaluator");
  auto* unbatched = command->add_flag("--unbatched", mUnbatched, "Only the unbatched evaluator");
  auto* both = command->add_flag("--both", mBoth, "Both (the default)");
  batched->excludes(unbatched)->excludes(both);
  unbatched->excludes(both);
  command->add_flag(
      "--gpu", mGpu,
      "Ask for evaluation on the GPU (the library falls back to the CPU without a hardware adapter)");
  command->add_option("--dim", mDims, "Size of a free dimension, by its name in the model or as INPUT:AXIS")
      ->type_name("NAME=SIZE");
  command->add_option("--warmup", mWarmup, "Requests run before each measured run")
      ->capture_default_str()
      ->check(WholeNumberValidator())
      ->check(CLI::Range(size_t{0}, kMostRequests));
  command->add_option("--json", mJson, "Write every number as JSON")->type_name("FILE");
  command->add_option("--plot", mPlot, "Draw throughput and p50 latency against concurrency (gnuplot)")
      ->type_name("FILE.png");
  command->add_option("--seed", mSeed, "Seed of the random inputs")
      ->capture_default_str()
      ->check(WholeNumberValidator());
  return command;
}

std::vector<size_t> BenchCommand::ParseConcurrency(const std::vector<std::string>& arguments) {
  const WholeNumberValidator wholeNumber;
  const CLI::Range range(size_t{1}, kMostClients);
  std::vector<size_t> levels;
  std::set<size_t> seen;
  for (const std::string& argument : arguments) {
    std::vector<std::string> items;
    boost::algorithm::split(items, argument, [](char c) { return c == ','; });
    for (std::string& item : items) {
      if (item.empty()) {
        throw CLI::ValidationError("--concurrency", "'" + argument + "' has an empty item");
      }
      std::string error = wholeNumber(item);
      if (error.empty()) {
        error = range(item);
      }
      if (!error.empty()) {
        throw CLI::ValidationError("--concurrency", error);
      }
      const size_t level = std::stoull(item);
      if (!seen.insert(level).second) {
        throw CLI::ValidationError("--concurrency", std::to_string(level) + " is given twice");
      }
      levels.push_back(level);
    }
  }
  return levels;
}

BenchMode BenchCommand::RunMode(const ModelSignature& signature, const BenchInputs& inputs, bool batched,
                                ProgressBar& progress) const {
  BenchMode mode;
  mode.name = batched ? "batched" : "unbatched";
  EvaluatorDevice device;
  const auto evaluator = signature.StartEvaluator(batched ? kBatchedInference : kUnbatchedInference, &device);
  mode.batchSize = std::max<size_t>(GetEvaluatorBatchSize(evaluator), 1);
  mode.device = device.Describe(mGpu);
  // The reference runs where the evaluator runs, so that the comparison stays one of overheads.
  RawOrtSession raw =
      RawOrtSession::ForInference(signature.Path(), static_cast<int64_t>(mode.batchSize), device.gpu);
  Prime(*evaluator, inputs.MakeRequest(mSeed), mode.batchSize);

  for (const size_t clients : mConcurrency) {
    const ClosedLoop loop(clients, progress);
    const std::string label = mode.name + " conc " + std::to_string(clients);
    BenchRow row;
    row.concurrency = clients;

    std::vector<utility::FeatureContainerVector> requests;
    for (size_t client = 0; client < clients; ++client) {
      requests.push_back(inputs.MakeRequest(mSeed + client));
    }
    // The evaluator only reads a request's tensors, so every call may queue the same ones.
    const ClosedLoop::Call queue = [&](size_t client) {
      auto answer = evaluator->QueueFeatures(utility::FeatureContainerVector(requests[client]));
      answer.Wait();
      answer.Get();  // rethrows a failed request
    };
    std::vector<RawBatch> batches;
    for (size_t client = 0; client < clients; ++client) {
      batches.push_back(inputs.MakeRawBatch(mode.batchSize, mSeed + kRawSeedOffset + client));
    }
    const ClosedLoop::Call run = [&](size_t client) { raw.Run(batches[client].values); };
    try {
      if (mWarmup > 0) {
        loop.Run(label + " kivml warm-up", mWarmup, 1, queue);
        loop.Run(label + " raw warm-up", mWarmup, mode.batchSize, run);
      }
      for (size_t round = 0; round < kRounds; ++round) {
        const size_t share = mRequests / kRounds + (round < mRequests % kRounds ? 1 : 0);
        if (share == 0) {
          continue;
        }
        const std::string of = " " + std::to_string(round + 1) + "/" + std::to_string(kRounds);
        row.kivml.Append(loop.Run(label + " kivml" + of, share, 1, queue));
        row.raw.Append(loop.Run(label + " raw" + of, share, mode.batchSize, run));
      }
    } catch (const Ort::Exception& exception) {
      throw ToolError("raw ONNX Runtime failed to run the model: " + std::string(exception.what()));
    }
    mode.rows.push_back(std::move(row));
  }
  return mode;
}

int BenchCommand::Execute() const {
  // Before anything runs: the results would otherwise be lost to a typo after minutes of measuring.
  if (!mJson.empty()) {
    OutputFile::RequireWritable(mJson, "--json");
  }
  if (!mPlot.empty()) {
    BenchReport::RequireGnuplot();
    OutputFile::RequireWritable(mPlot, "--plot");
  }
  const ModelSignature signature = ModelSignature::Load(mModel, mGpu);
  signature.RequireSupportedTypes();
  const BenchInputs inputs(signature, mDims);

  const bool wantBatched = !mUnbatched;
  const bool wantUnbatched = !mBatched;
  if (mBatched) {
    signature.RequireBatching();
  }

  BenchSetup setup;
  setup.model = mModel;
  setup.gpuRequested = mGpu;
  setup.requests = mRequests;
  setup.warmup = mWarmup;
  setup.seed = mSeed;
  setup.hardwareThreads = std::thread::hardware_concurrency();
  setup.inputs = inputs.Inputs();
  setup.freeDims = inputs.FreeDims();
  BenchReport report(std::move(setup));
  report.PrintSetup(std::cout);
  if (wantBatched && !signature.SupportsBatching()) {
    std::cout << "batched mode skipped: the model cannot run batched\n";
  }
  std::cout.flush();

  ProgressBar progress;
  try {
    if (wantBatched && signature.SupportsBatching()) {
      report.AddMode(RunMode(signature, inputs, true, progress));
    }
    if (wantUnbatched) {
      report.AddMode(RunMode(signature, inputs, false, progress));
    }
  } catch (const ToolError&) {
    throw;
  } catch (...) {
    // What else escapes is a failed request; described here, while the library can still translate it.
    throw ToolError("a request failed: " + DescribeFailure(std::current_exception()));
  }
  report.PrintTables(std::cout);
  report.PrintTargets(std::cout);
  if (!mJson.empty()) {
    report.WriteJson(mJson);
    std::cout << "\nwrote " << mJson << '\n';
  }
  if (!mPlot.empty()) {
    report.WritePlot(mPlot);
    std::cout << (mJson.empty() ? "\n" : "") << "wrote " << mPlot << '\n';
  }
  return 0;
}

}  // namespace kivml::cli
