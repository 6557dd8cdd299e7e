#include "RunCommand.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <iostream>
#include <set>
#include <system_error>

#include "BenchOptionLists.h"
#include "CLI11Include.h"
#include "Formatting.h"
#include "ModelSignature.h"
#include "StatisticsFormat.h"
#include "ToolError.h"
#include "WholeNumberValidator.h"
#include "kivml/CreatePreferredEvaluator.h"
#include "kivml/EvaluatorStatistics.h"
#include "kivml/ITensorMLFeatureAccessor.h"

namespace kivml::cli {

namespace {

kivcore::classref::InterfaceRef<ITensorMLFeatureAccessor> TensorOf(
    const kivcore::classref::InterfaceRef<IMLFeature>& feature) {
  return feature ? feature.Query<ITensorMLFeatureAccessor>() : nullptr;
}

void CheckShape(const FeatureSignature& input, const std::string& file, const ShapeType& shape) {
  const DescriptionShapeType& expected = input.requestShape;
  const std::string context = "input '" + input.name + "' (" + file + "): the model takes shape " +
                              FormatShape(expected) + ", the file holds " + FormatShape(shape);
  if (shape.size() != expected.size()) {
    throw ToolError(context + " (rank " + std::to_string(shape.size()) + " instead of " +
                    std::to_string(expected.size()) + ")");
  }
  for (size_t axis = 0; axis < shape.size(); ++axis) {
    if (expected[axis] >= 0 && shape[axis] != static_cast<uint64_t>(expected[axis])) {
      const std::string hint = axis == 0 && input.batchAxis ? "; a request is one row of the batch" : "";
      throw ToolError(context + " (axis " + std::to_string(axis) + " must be " +
                      std::to_string(expected[axis]) + hint + ")");
    }
  }
}

// Equal to rounding: a run on other threads or in another batch may sum in another order.
template <class T>
bool AllClose(const void* a, const void* b, size_t count) {
  const auto* x = static_cast<const T*>(a);
  return std::equal(x, x + count, static_cast<const T*>(b), [](double p, double q) {
    return p == q || (std::isnan(p) && std::isnan(q)) ||
           std::fabs(p - q) <= 1e-5 * std::max(1.0, std::fabs(p));
  });
}

// Whether two answers to the same request agree: exactly for integers and bools, to rounding for floats.
bool SameValues(const ITensorMLFeatureAccessor& a, const ITensorMLFeatureAccessor& b,
                const kivcore::utility::Guid& elementType) {
  if (a.GetShape() != b.GetShape() || a.GetDataTypeSize() != b.GetDataTypeSize()) {
    return false;
  }
  const size_t count = a.GetCount();
  if (elementType == features::kFloat32TensorFeatureType) {
    return AllClose<float>(a.GetData(), b.GetData(), count);
  }
  if (elementType == features::kDoubleTensorFeatureType) {
    return AllClose<double>(a.GetData(), b.GetData(), count);
  }
  return count == 0 || std::memcmp(a.GetData(), b.GetData(), count * a.GetDataTypeSize()) == 0;
}

}  // namespace

CLI::App* RunCommand::Register(CLI::App& app) {
  CLI::App* command = app.add_subcommand("run", "Run one request and write its outputs as .npy files");
  command->add_option("model", mModel, "The ONNX model")->required()->type_name("MODEL.onnx");
  command->add_option("--input,-i", mInputs, "An input of the request, read from a .npy file (repeat)")
      ->type_name("NAME=FILE.npy");
  command->add_option("--output-dir,-o", mOutputDir, "Where to write <output name>.npy")
      ->capture_default_str()
      ->type_name("DIR");
  command->add_flag("--batched", mBatched,
                    "Queue the request to a batching evaluator (a lone request waits for latecomers first)");
  command->add_flag(
      "--gpu", mGpu,
      "Ask for evaluation on the GPU (the library falls back to the CPU without a hardware adapter)");
  command
      ->add_option("--lanes", mLanes,
                   "Predictions the evaluator may run at once; 0 fits the machine (default: the setting "
                   "kivml.PredictionLanes)")
      ->check(WholeNumberValidator())
      ->check(CLI::Range(0U, BenchOptionLists::kMostLanes))
      ->type_name("N");
  command
      ->add_option("--repeat", mRepeat, "Run the request N times, check the answers agree, report the mean")
      ->check(CLI::Range(1, 1000000))
      ->type_name("N");
  command->add_flag("--stats", mStats,
                    "After the run, print the evaluator's statistics: counts, queue, prediction and "
                    "completion times, batches and lanes");
  return command;
}

RunCommand::Request RunCommand::ReadInputs(const ModelSignature& signature) const {
  Request request;
  std::set<std::string> given;
  for (const std::string& argument : mInputs) {
    const size_t equals = argument.find('=');
    if (equals == std::string::npos || equals == 0) {
      throw ToolError("--input '" + argument + "': expected NAME=FILE.npy");
    }
    const std::string name = argument.substr(0, equals);
    const std::string file = argument.substr(equals + 1);
    const FeatureSignature* input = signature.FindInput(name);
    if (input == nullptr) {
      throw ToolError("the model has no input '" + name + "' (its inputs: " + signature.InputNames() + ")");
    }
    if (!given.insert(name).second) {
      throw ToolError("input '" + name + "' is given twice");
    }
    NpyFiles::Loaded loaded;
    try {
      loaded = NpyFiles::Read(file);
    } catch (const ToolError& error) {
      throw ToolError("input '" + name + "': " + error.what());
    }
    const auto& tensor = loaded.tensor;
    if (tensor.mElementType != input->elementType) {
      throw ToolError("input '" + name + "' (" + file + "): the model takes " + input->typeName +
                      ", the file holds " + ElementTypeName(tensor.mElementType));
    }
    const auto accessor = TensorOf(tensor.mFeature);
    if (!accessor) {
      throw ToolError("input '" + name + "' (" + file + "): the file holds no tensor");
    }
    CheckShape(*input, file, accessor->GetShape());
    request.features.push_back({kivcore::utility::ImmutableString::Create(name), tensor.mFeature});
    request.files.push_back(std::move(loaded));
  }
  for (const FeatureSignature& input : signature.Inputs()) {
    if (given.count(input.name) == 0) {
      throw ToolError("input '" + input.name + "' is required: give it with --input " + input.name +
                      "=FILE.npy (" + input.typeName + ", shape " + FormatShape(input.requestShape) + ")");
    }
  }
  return request;
}

std::pair<utility::FeatureContainerVector, double> RunCommand::RunRepeatedly(
    const ModelSignature& signature, IMLEvaluator& evaluator,
    const utility::FeatureContainerVector& request) const {
  using Clock = std::chrono::steady_clock;
  utility::FeatureContainerVector first;
  Clock::duration total{};
  for (int run = 0; run < mRepeat; ++run) {
    const auto start = Clock::now();
    auto answer = evaluator.QueueFeatures(utility::FeatureContainerVector(request));
    answer.Wait();
    total += Clock::now() - start;
    utility::FeatureContainerVector outputs;
    try {
      outputs = answer.Take();
    } catch (...) {
      throw ToolError("the request failed: " + DescribeFailure(std::current_exception()));
    }
    if (run == 0) {
      first = std::move(outputs);
      continue;
    }
    for (const auto& expected : first) {
      const auto match = std::find_if(outputs.begin(), outputs.end(), [&](const auto& output) {
        return output.mFeatureName == expected.mFeatureName;
      });
      const FeatureSignature* described = signature.FindOutput(expected.mFeatureName.View());
      const auto a = TensorOf(expected.mFeature);
      const auto b = match != outputs.end() ? TensorOf(match->mFeature) : nullptr;
      if (!a || !b || described == nullptr || !SameValues(*a, *b, described->elementType)) {
        throw ToolError("run " + std::to_string(run + 1) + " answered output '" +
                        expected.mFeatureName.ToStdString() + "' differently from run 1");
      }
    }
  }
  return {std::move(first), std::chrono::duration<double>(total).count() / mRepeat};
}

void RunCommand::WriteOutputs(const ModelSignature& signature,
                              const utility::FeatureContainerVector& outputs) const {
  const std::filesystem::path directory(mOutputDir);
  std::error_code error;
  std::filesystem::create_directories(directory, error);
  if (error) {
    throw ToolError("cannot create the output directory '" + mOutputDir + "': " + error.message());
  }
  std::vector<std::vector<std::string>> lines;
  std::set<std::string> stems;
  for (const auto& output : outputs) {
    const std::string name = output.mFeatureName.ToStdString();
    const FeatureSignature* described = signature.FindOutput(name);
    const auto tensor = TensorOf(output.mFeature);
    if (described == nullptr || !tensor) {
      throw ToolError("the answer carries output '" + name +
                      "', which the model does not describe as a tensor");
    }
    // Two names may sanitise alike ("a/b" and "a_b"): the later one gets a number.
    std::string stem = NpyFiles::SafeFileStem(name);
    for (int suffix = 2; !stems.insert(stem).second; ++suffix) {
      stem = NpyFiles::SafeFileStem(name) + "_" + std::to_string(suffix);
    }
    const std::filesystem::path file = directory / (stem + ".npy");
    NpyFiles::Write(file, output.mFeature, described->elementType);
    lines.push_back({name, described->typeName, FormatShape(tensor->GetShape()), file.string()});
  }
  PrintColumns(std::cout, lines, "");
}

int RunCommand::Execute() const {
  const ModelSignature signature = ModelSignature::Load(mModel, mGpu);
  signature.RequireSupportedTypes();
  if (mBatched) {
    signature.RequireBatching();
  }
  const Request request = ReadInputs(signature);
  EvaluatorDevice device;
  const auto evaluator = signature.StartEvaluator(
      EvaluatorOptions(mBatched ? kBatchedInference : kUnbatchedInference, mLanes), &device);
  const size_t lanes = GetEvaluatorPredictionLanes(evaluator);
  const auto [outputs, seconds] = RunRepeatedly(signature, *evaluator, request.features);
  WriteOutputs(signature, outputs);
  std::cerr << "on " << EscapeControlCharacters(device.Describe(mGpu)) << " with " << lanes
            << (lanes == 1 ? " lane" : " lanes") << ": ran " << mRepeat
            << (mRepeat == 1 ? " request" : " requests, answers agree") << "; mean "
            << FormatFixed(seconds * 1e3, 3) << " ms per request\n";
  if (mStats) {
    StatisticsFormat::Print(std::cerr, GetEvaluatorStatistics(evaluator));
  }
  return 0;
}

}  // namespace kivml::cli
