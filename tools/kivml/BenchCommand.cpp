#include "BenchCommand.h"

#include <algorithm>
#include <chrono>
#include <iostream>
#include <memory>
#include <random>
#include <sstream>
#include <thread>

#include "BenchOptionLists.h"
#include "BenchRunFile.h"
#include "CLI11Include.h"
#include "ChildProcess.h"
#include "Formatting.h"
#include "ModelSignature.h"
#include "OutputFile.h"
#include "ProgressBar.h"
#include "RawOrtSession.h"
#include "SelfExecutable.h"
#include "ToolError.h"
#include "WholeNumberValidator.h"
#include "kivcore/debug/DebugDatabase.h"
#include "kivml/CreatePreferredEvaluator.h"
#include "kivml/EvaluatorStatistics.h"
#include "kivml/Settings.h"

namespace kivml::cli {

namespace {

// Seeds of the raw clients' inputs, apart from the kivml clients' (seed + client) by more than any
// concurrency.
constexpr uint64_t kRawSeedOffset = 1'000'003;
// Full batches queued at once before anything is measured: until the evaluator has timed a few runs it
// waits long for latecomers to fill a batch, which would otherwise dominate the first warm-up.
constexpr size_t kPrimingBatches = 8;
// The measured requests of each load are split into this many rounds, every load taking its turn in each,
// so that a machine whose speed drifts during the run (shared, throttled) slows them all alike.
constexpr size_t kRounds = 4;
constexpr size_t kMostRequests = 100'000'000;
// A pause before each load's turn: ONNX Runtime's pools that spin (the library's with kivml.AllowSpinning,
// a default session's always) keep spinning a while after their last work, which would tax the next load.
constexpr auto kSettle = std::chrono::milliseconds(50);
// Rows of the hand-written reference's ready batches when no batched evaluator says its size.
constexpr size_t kDefaultHandBatch = 8;

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

// Whether ONNX Runtime's shared pools spin in this process: the library read the setting as it
// initialised, on for exactly "true", and nothing has changed it since.
bool ProcessSpins() {
  return kivcore::debug::DebugDatabase::Instance().GetEntry(settings::kAllowSpinning.key) == "true";
}

std::string OnOff(bool on) {
  return on ? "on" : "off";
}

template <class Number>
std::string JoinCounts(const std::vector<Number>& counts) {
  std::string joined;
  for (const Number count : counts) {
    joined += (joined.empty() ? "" : ",") + std::to_string(count);
  }
  return joined;
}

// A fresh name in the system's temporary folder, for a child's measurements.
std::filesystem::path TemporaryRunFile() {
  std::random_device entropy;
  std::ostringstream name;
  name << "kivml-bench-" << std::hex << entropy() << entropy() << ".json";
  return std::filesystem::temp_directory_path() / name.str();
}

// Removes the file when it goes, whatever happened, if there is one.
struct TemporaryFile {
  std::filesystem::path path;
  ~TemporaryFile() {
    std::error_code ignored;
    std::filesystem::remove(path, ignored);
  }
};

// One load measured in turns with the others at a concurrency level.
struct Contestant {
  std::string label;
  const ClosedLoop* loop;
  size_t rowsPerCall;
  ClosedLoop::Call call;
  BenchSeries* series;
  LoopResult result;
  // The library's evaluator under load, whose statistics go with the result; null for a reference.
  const kivcore::classref::InterfaceRef<IMLEvaluator>* evaluator = nullptr;
};

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
  command
      ->add_option_function<std::vector<std::string>>(
          "--concurrency,-c",
          [this](const std::vector<std::string>& lists) {
            mConcurrency = BenchOptionLists::Concurrency(lists);
          },
          "Client thread counts, comma-separated, each once")
      ->default_str("1,4,16,64")
      ->type_name("N,N,...");
  command
      ->add_option_function<std::vector<std::string>>(
          "--lanes",
          [this](const std::vector<std::string>& lists) { mLanes = BenchOptionLists::Lanes(lists); },
          "Prediction lanes of the evaluators, comma-separated, each once; auto (or 0) fits the machine")
      ->default_str("1,auto")
      ->type_name("N,auto,...");
  command
      ->add_option(
          "--spinning", mSpinning,
          "Whether ONNX Runtime's shared thread pools spin while idle (kivml.AllowSpinning): off, on, "
          "or both, each in a process of its own")
      ->capture_default_str()
      ->check(CLI::IsMember({"off", "on", "both"}));
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
  // How a child process is told where its measurements go; not for users, so not in the help.
  command->add_option("--run-file", mRunFile)->group("");
  return command;
}

BenchRun BenchCommand::Measure(const ModelSignature& signature, const BenchInputs& inputs, bool spinning,
                               ProgressBar& progress) const {
  BenchRun run;
  run.spinning = spinning;
  const std::string prefix = spinning ? "spinning " : "";

  std::vector<bool> modes;
  if (!mUnbatched && signature.SupportsBatching()) {
    modes.push_back(true);
  }
  if (!mBatched) {
    modes.push_back(false);
  }
  std::vector<kivcore::classref::InterfaceRef<IMLEvaluator>> evaluators;
  bool gpu = false;
  size_t batchSize = 0;
  for (const bool batched : modes) {
    for (const unsigned lanes : mLanes) {
      EvaluatorDevice device;
      auto evaluator = signature.StartEvaluator(
          EvaluatorOptions(batched ? kBatchedInference : kUnbatchedInference, lanes), &device);
      BenchConfiguration configuration;
      configuration.batched = batched;
      configuration.lanesAsked = lanes;
      configuration.lanes = GetEvaluatorPredictionLanes(evaluator);
      configuration.batchSize = std::max<size_t>(GetEvaluatorBatchSize(evaluator), 1);
      configuration.device = device.Describe(mGpu);
      Prime(*evaluator, inputs.MakeRequest(mSeed), configuration.batchSize);
      gpu = gpu || device.gpu;
      batchSize = batched && batchSize == 0 ? configuration.batchSize : batchSize;
      run.configurations.push_back(std::move(configuration));
      evaluators.push_back(std::move(evaluator));
    }
  }

  // The library's references run where its evaluators run, so that the comparison stays one of overheads;
  // the hand-written one is what a host would write without the library: default options, the CPU.
  const bool unbatchedMode = std::find(modes.begin(), modes.end(), false) != modes.end();
  std::unique_ptr<RawOrtSession> rawOneRow;
  std::unique_ptr<RawOrtSession> rawBatches;
  if (unbatchedMode) {
    rawOneRow.reset(new RawOrtSession(RawOrtSession::ForInference(signature.Path(), 1, gpu)));
    run.rawOneRow.emplace().rowsPerCall = 1;
  }
  if (batchSize > 0) {
    rawBatches.reset(new RawOrtSession(
        RawOrtSession::ForInference(signature.Path(), static_cast<int64_t>(batchSize), gpu)));
    run.rawBatches.emplace().rowsPerCall = batchSize;
  }
  RawOrtSession hand = RawOrtSession::WithDefaultOptions(signature.Path());
  const size_t handBatch = !signature.SupportsBatching() ? 0 : batchSize > 0 ? batchSize : kDefaultHandBatch;
  if (handBatch > 0) {
    run.handBatches.emplace().rowsPerCall = handBatch;
  }

  for (const size_t clients : mConcurrency) {
    const ClosedLoop loop(clients, progress);
    const ClosedLoop alone(1, progress);
    const std::string conc = " conc " + std::to_string(clients);

    std::vector<utility::FeatureContainerVector> requests;
    std::vector<RawBatch> oneRows;
    std::vector<RawBatch> batches;
    for (size_t client = 0; client < clients; ++client) {
      requests.push_back(inputs.MakeRequest(mSeed + client));
      oneRows.push_back(inputs.MakeRawBatch(1, mSeed + kRawSeedOffset + client));
      if (rawBatches) {
        batches.push_back(inputs.MakeRawBatch(batchSize, mSeed + kRawSeedOffset + client));
      }
    }
    const RawBatch handInputs = inputs.MakeRawBatch(std::max<size_t>(handBatch, 1), mSeed + kRawSeedOffset);

    std::vector<Contestant> contestants;
    for (size_t index = 0; index < evaluators.size(); ++index) {
      BenchConfiguration& configuration = run.configurations[index];
      contestants.push_back(
          {prefix + configuration.ModeName() + " lanes " + configuration.LanesText() + conc + " kivml",
           &loop,
           1,
           // The evaluator only reads a request's tensors, so every call may queue the same ones.
           [&requests, &evaluator = *evaluators[index]](size_t client) {
             auto answer = evaluator.QueueFeatures(utility::FeatureContainerVector(requests[client]));
             answer.Wait();
             answer.Get();  // rethrows a failed request
           },
           &configuration.kivml,
           {},
           &evaluators[index]});
    }
    if (rawOneRow) {
      contestants.push_back({prefix + "raw one-row" + conc,
                             &loop,
                             1,
                             [&](size_t client) { rawOneRow->Run(oneRows[client].values); },
                             &*run.rawOneRow,
                             {}});
    }
    if (rawBatches) {
      contestants.push_back({prefix + "raw batches" + conc,
                             &loop,
                             batchSize,
                             [&](size_t client) { rawBatches->Run(batches[client].values); },
                             &*run.rawBatches,
                             {}});
    }
    contestants.push_back({prefix + "hand-written one-row" + conc,
                           &loop,
                           1,
                           [&](size_t client) { hand.Run(oneRows[client].values); },
                           &run.handOneRow,
                           {}});
    if (handBatch > 0) {
      contestants.push_back({prefix + "hand-written batches" + conc,
                             &alone,
                             handBatch,
                             [&](size_t /*client*/) { hand.Run(handInputs.values); },
                             &*run.handBatches,
                             {}});
    }

    try {
      if (mWarmup > 0) {
        for (const Contestant& contestant : contestants) {
          contestant.loop->Run(contestant.label + " warm-up", mWarmup, contestant.rowsPerCall,
                               contestant.call);
        }
      }
      // The statistics cover the measured requests only: not the priming, the warm-up or other levels.
      for (const Contestant& contestant : contestants) {
        if (contestant.evaluator != nullptr) {
          ResetEvaluatorStatistics(*contestant.evaluator);
        }
      }
      for (size_t round = 0; round < kRounds; ++round) {
        const size_t share = mRequests / kRounds + (round < mRequests % kRounds ? 1 : 0);
        if (share == 0) {
          continue;
        }
        const std::string of = " " + std::to_string(round + 1) + "/" + std::to_string(kRounds);
        for (Contestant& contestant : contestants) {
          std::this_thread::sleep_for(kSettle);
          contestant.result.Append(
              contestant.loop->Run(contestant.label + of, share, contestant.rowsPerCall, contestant.call));
        }
      }
    } catch (const Ort::Exception& exception) {
      throw ToolError("raw ONNX Runtime failed to run the model: " + std::string(exception.what()));
    }
    for (Contestant& contestant : contestants) {
      std::optional<EvaluatorStatistics> statistics;
      if (contestant.evaluator != nullptr) {
        statistics = GetEvaluatorStatistics(*contestant.evaluator);
      }
      contestant.series->points.push_back({clients, std::move(contestant.result), std::move(statistics)});
    }
  }
  return run;
}

BenchRun BenchCommand::MeasureInChild(bool spinning,
                                      const std::vector<std::string>& settingsArguments) const {
  std::vector<std::string> arguments{"bench",
                                     "--requests=" + std::to_string(mRequests),
                                     "--concurrency=" + JoinCounts(mConcurrency),
                                     "--lanes=" + JoinCounts(mLanes),
                                     "--warmup=" + std::to_string(mWarmup),
                                     "--seed=" + std::to_string(mSeed)};
  if (mBatched) {
    arguments.emplace_back("--batched");
  }
  if (mUnbatched) {
    arguments.emplace_back("--unbatched");
  }
  if (mGpu) {
    arguments.emplace_back("--gpu");
  }
  for (const std::string& dim : mDims) {
    arguments.push_back("--dim=" + dim);
  }
  arguments.insert(arguments.end(), settingsArguments.begin(), settingsArguments.end());
  // After the user's settings, which it overrides.
  arguments.push_back("--set=" + std::string(settings::kAllowSpinning.key) + "=" +
                      (spinning ? "true" : "false"));
  const std::filesystem::path file = TemporaryRunFile();
  arguments.push_back("--run-file=" + file.string());
  arguments.insert(arguments.end(), {"--", mModel});

  const TemporaryFile removal{file};
  const int status = ChildProcess::Run(SelfExecutable::Path(), arguments);
  if (status != 0) {
    throw ToolError("the run with spinning " + OnOff(spinning) +
                    ", a child process of kivml, failed (exit status " + std::to_string(status) +
                    "; its messages are above)");
  }
  BenchRun run = BenchRunFile::Read(file);
  if (run.spinning != spinning) {
    throw ToolError("the child process measured with spinning " + OnOff(run.spinning) + " where " +
                    OnOff(spinning) + " was asked for");
  }
  return run;
}

int BenchCommand::Execute(const std::vector<std::string>& settingsArguments) const {
  const bool child = !mRunFile.empty();
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
  if (mBatched) {
    signature.RequireBatching();
  }

  const bool spins = ProcessSpins();
  std::vector<bool> settings;
  if (child) {
    settings = {spins};
  } else if (mSpinning == "both") {
    settings = {false, true};
  } else {
    settings = {mSpinning == "on"};
  }

  BenchSetup setup;
  setup.model = mModel;
  setup.gpuRequested = mGpu;
  setup.requests = mRequests;
  setup.warmup = mWarmup;
  setup.seed = mSeed;
  setup.hardwareThreads = std::thread::hardware_concurrency();
  setup.lanes = mLanes;
  setup.spinning = settings;
  setup.inputs = inputs.Inputs();
  setup.freeDims = inputs.FreeDims();
  BenchReport report(std::move(setup));
  if (!child) {
    report.PrintSetup(std::cout);
    if (!mUnbatched && !signature.SupportsBatching()) {
      std::cout << "batched mode skipped: the model cannot run batched\n";
    }
    std::cout.flush();
  }

  ProgressBar progress;
  for (const bool spinning : settings) {
    if (spinning != spins) {
      report.AddRun(MeasureInChild(spinning, settingsArguments));
      continue;
    }
    try {
      BenchRun run = Measure(signature, inputs, spinning, progress);
      if (child) {
        BenchRunFile::Write(mRunFile, run);
        return 0;
      }
      report.AddRun(std::move(run));
    } catch (const ToolError&) {
      throw;
    } catch (...) {
      // What else escapes is a failed request; described here, while the library can still translate it.
      throw ToolError("a request failed: " + DescribeFailure(std::current_exception()));
    }
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
