// Runs the ONNX backend test cases (converted by make_conformance_manifest.py) through the public
// evaluator API and compares every output with the stored one. All cases run inside one test: a process
// per case would spend its time starting up.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "kivcore/config/InitializerRegistrar.h"
#include "kivml/CreatePreferredEvaluator.h"
#include "kivml/ITensorMLFeatureAccessor.h"
#include "kivml/ONNXModelFactory.h"
#include "kivml/utility/TensorFactories.h"
#include "support/FutureChecks.h"

namespace kivml::testing {
namespace {

using kivcore::allocator::RecycledMemory;
using kivcore::classref::InterfaceRef;
using kivcore::utility::ImmutableString;

// The build defines one of the two: the manifest, or why there is none.
#ifdef KIVML_CONFORMANCE_UNAVAILABLE
constexpr const char* kUnavailable = KIVML_CONFORMANCE_UNAVAILABLE;
constexpr const char* kManifest = "";
#else
constexpr const char* kUnavailable = nullptr;
constexpr const char* kManifest = KIVML_CONFORMANCE_MANIFEST;
#endif

struct TensorData {
  std::string name;
  std::string type;  // float32, float64, int32, int64 or bool
  std::vector<uint64_t> shape;
  std::filesystem::path file;
};

struct DataSet {
  int index = 0;
  std::vector<TensorData> inputs;
  std::vector<TensorData> outputs;
};

struct Case {
  std::string name;
  double rtol = 0;
  double atol = 0;
  std::filesystem::path model;
  std::vector<DataSet> sets;
};

// Cases that fail on raw ONNX Runtime 1.30 as well, so they say nothing about this library.
struct SkipGroup {
  std::string_view reason;
  std::vector<std::string_view> cases;
};

const std::vector<SkipGroup>& SkipGroups() {
  static const std::vector<SkipGroup> groups = {
      {"ai.onnx.preview.training ops have no kernels in ORT's inference build",
       {"node/test_adagrad", "node/test_adagrad_multiple", "node/test_adam", "node/test_adam_multiple",
        "node/test_momentum", "node/test_momentum_multiple", "node/test_nesterov_momentum",
        "simple/test_gradient_of_add", "simple/test_gradient_of_add_and_mul"}},
      {"ORT's CPU recurrent kernels reject layout=1",
       {"node/test_gru_batchwise", "node/test_lstm_batchwise", "node/test_simple_rnn_batchwise"}},
      {"random output: ORT's generator is not numpy's",
       {"node/test_bernoulli", "node/test_bernoulli_double", "node/test_bernoulli_double_expanded",
        "node/test_bernoulli_expanded", "node/test_bernoulli_seed", "node/test_bernoulli_seed_expanded",
        "node/test_training_dropout", "node/test_training_dropout_default",
        "node/test_training_dropout_default_mask", "node/test_training_dropout_mask"}},
      {"ORT's result differs from the stored one (MaxUnpool with output_shape, align_corners downsampling)",
       {"node/test_maxunpool_export_with_output_shape",
        "node/test_resize_downsample_scales_cubic_align_corners",
        "node/test_resize_downsample_scales_linear_align_corners"}},
      {"opset-6 export using an op version older than ORT's oldest kernel (AveragePool-1, "
       "BatchNormalization-6, "
       "Add/Mul-6, Gemm-6, PRelu-6, Pow-1)",
       {"pytorch-converted/test_AvgPool1d",
        "pytorch-converted/test_AvgPool1d_stride",
        "pytorch-converted/test_AvgPool2d",
        "pytorch-converted/test_AvgPool2d_stride",
        "pytorch-converted/test_AvgPool3d",
        "pytorch-converted/test_AvgPool3d_stride",
        "pytorch-converted/test_AvgPool3d_stride1_pad0_gpu_input",
        "pytorch-converted/test_BatchNorm1d_3d_input_eval",
        "pytorch-converted/test_BatchNorm2d_eval",
        "pytorch-converted/test_BatchNorm2d_momentum_eval",
        "pytorch-converted/test_BatchNorm3d_eval",
        "pytorch-converted/test_BatchNorm3d_momentum_eval",
        "pytorch-converted/test_GLU",
        "pytorch-converted/test_GLU_dim",
        "pytorch-converted/test_Linear",
        "pytorch-converted/test_PReLU_1d",
        "pytorch-converted/test_PReLU_1d_multiparam",
        "pytorch-converted/test_PReLU_2d",
        "pytorch-converted/test_PReLU_2d_multiparam",
        "pytorch-converted/test_PReLU_3d",
        "pytorch-converted/test_PReLU_3d_multiparam",
        "pytorch-converted/test_PoissonNLLLLoss_no_reduce",
        "pytorch-converted/test_Softsign",
        "pytorch-operator/test_operator_add_broadcast",
        "pytorch-operator/test_operator_add_size1_broadcast",
        "pytorch-operator/test_operator_add_size1_right_broadcast",
        "pytorch-operator/test_operator_add_size1_singleton_broadcast",
        "pytorch-operator/test_operator_addconstant",
        "pytorch-operator/test_operator_addmm",
        "pytorch-operator/test_operator_basic",
        "pytorch-operator/test_operator_mm",
        "pytorch-operator/test_operator_non_float_params",
        "pytorch-operator/test_operator_params",
        "pytorch-operator/test_operator_pow"}},
  };
  return groups;
}

const std::map<std::string_view, std::string_view>& SkipReasons() {
  static const auto reasons = [] {
    std::map<std::string_view, std::string_view> byCase;
    for (const auto& group : SkipGroups()) {
      for (const auto name : group.cases) {
        byCase.emplace(name, group.reason);
      }
    }
    return byCase;
  }();
  return reasons;
}

uint64_t ElementSize(const std::string& type) {
  if (type == "bool") {
    return 1;
  }
  return type == "float32" || type == "int32" ? 4 : 8;
}

// Throws on anything malformed: a manifest that cannot be read must fail the test, not shrink it.
std::vector<Case> ReadManifest(const std::filesystem::path& path) {
  std::ifstream in(path);
  if (!in) {
    throw std::runtime_error("cannot open " + path.string());
  }
  const auto root = path.parent_path();
  std::vector<Case> cases;
  std::string line;
  while (std::getline(in, line)) {
    std::istringstream words(line);
    std::string keyword;
    words >> keyword;
    if (keyword == "case") {
      Case c;
      std::string model;
      words >> c.name >> c.rtol >> c.atol >> model;
      c.model = model;
      cases.push_back(std::move(c));
    } else if (keyword == "set" && !cases.empty()) {
      cases.back().sets.push_back({});
      words >> cases.back().sets.back().index;
    } else if ((keyword == "input" || keyword == "output") && !cases.empty() && !cases.back().sets.empty()) {
      TensorData tensor;
      size_t rank = 0;
      words >> tensor.name >> tensor.type >> rank;
      tensor.shape.resize(rank);
      for (auto& dim : tensor.shape) {
        words >> dim;
      }
      std::string file;
      words >> file;
      tensor.file = root / file;
      auto& set = cases.back().sets.back();
      (keyword == "input" ? set.inputs : set.outputs).push_back(std::move(tensor));
    } else if (keyword != "end") {
      words.setstate(std::ios::failbit);
    }
    if (words.fail()) {
      throw std::runtime_error("bad manifest line: " + line);
    }
  }
  return cases;
}

std::shared_ptr<RecycledMemory> ReadBytes(const std::filesystem::path& file) {
  const auto size = static_cast<size_t>(std::filesystem::file_size(file));
  auto memory = RecycledMemory::Create(size);
  std::ifstream in(file, std::ios::binary);
  if (size > 0 && !in.read(memory->Buffer(), static_cast<std::streamsize>(size))) {
    throw std::runtime_error("cannot read " + file.string());
  }
  return memory;
}

template <class T>
T ElementAt(const void* data, size_t index) {
  T value;
  std::memcpy(&value, static_cast<const char*>(data) + index * sizeof(T), sizeof(T));
  return value;
}

template <class T>
std::string Pair(T got, T want) {
  std::ostringstream text;
  text.precision(9);
  text << "got " << +got << ", want " << +want;
  return text.str();
}

template <class Shape>
std::string Dims(const Shape& shape) {
  std::string text = "[";
  for (const auto dim : shape) {
    text += (text.size() > 1 ? "," : "") + std::to_string(dim);
  }
  return text + "]";
}

// Empty when `got` matches the expected tensor; what differs otherwise.
std::string Compare(const ITensorMLFeatureAccessor& got, const TensorData& want, double rtol, double atol) {
  const auto shape = got.GetShape();
  if (std::vector<uint64_t>(shape.begin(), shape.end()) != want.shape) {
    return "shape " + Dims(shape) + ", want " + Dims(want.shape);
  }
  if (got.GetDataTypeSize() != ElementSize(want.type)) {
    return "element size " + std::to_string(got.GetDataTypeSize());
  }
  const auto expected = ReadBytes(want.file);
  const size_t count = expected->Size() / ElementSize(want.type);
  if (got.GetCount() != count) {
    return "count " + std::to_string(got.GetCount()) + ", want " + std::to_string(count);
  }
  if (count == 0) {
    return {};
  }
  const void* data = got.GetData();
  if (data == nullptr) {
    return "no data";
  }
  const auto close = [&](double a, double b) {
    return (std::isnan(a) && std::isnan(b)) || a == b || std::fabs(a - b) <= atol + rtol * std::fabs(b);
  };
  for (size_t i = 0; i < count; ++i) {
    std::string difference;
    if (want.type == "float32") {
      const auto a = ElementAt<float>(data, i), b = ElementAt<float>(expected->Buffer(), i);
      difference = close(a, b) ? "" : Pair(a, b);
    } else if (want.type == "float64") {
      const auto a = ElementAt<double>(data, i), b = ElementAt<double>(expected->Buffer(), i);
      difference = close(a, b) ? "" : Pair(a, b);
    } else if (want.type == "int32") {
      const auto a = ElementAt<int32_t>(data, i), b = ElementAt<int32_t>(expected->Buffer(), i);
      difference = a == b ? "" : Pair(a, b);
    } else if (want.type == "int64") {
      const auto a = ElementAt<int64_t>(data, i), b = ElementAt<int64_t>(expected->Buffer(), i);
      difference = a == b ? "" : Pair(a, b);
    } else {
      const auto a = ElementAt<uint8_t>(data, i), b = ElementAt<uint8_t>(expected->Buffer(), i);
      difference = a == b ? "" : Pair(a, b);
    }
    if (!difference.empty()) {
      return "element " + std::to_string(i) + ": " + difference;
    }
  }
  return {};
}

utility::FeatureContainerVector MakeRequest(const DataSet& set) {
  utility::FeatureContainerVector request;
  for (const auto& input : set.inputs) {
    ShapeType shape(input.shape.begin(), input.shape.end());
    request.push_back({ImmutableString::Create(input.name),
                       utility::CreatePackedTensor(ReadBytes(input.file), ElementSize(input.type), shape)});
  }
  return request;
}

// Empty when every data set of the case reproduces its stored outputs; the first fault otherwise.
std::string RunCase(const Case& c) {
  InterfaceRef<IMLModel> model;
  try {
    model = CreateONNXModelFromFile(c.model);
  } catch (const std::exception& error) {
    return std::string("model: ") + error.what();
  }
  const auto created = CreatePreferredEvaluator(model, kUnbatchedInference);
  if (ResultOf(created) != 0) {
    return "evaluator: " + MessageOf(created) + " (" + std::to_string(ResultOf(created)) + ")";
  }
  const auto evaluator = created.Get();

  // All sets are queued before the first is read, as a host would.
  std::vector<kivcore::async::Future<utility::FeatureContainerVector>> results;
  for (const auto& set : c.sets) {
    results.push_back(evaluator->QueueFeatures(MakeRequest(set)));
  }
  for (size_t s = 0; s < c.sets.size(); ++s) {
    const auto& set = c.sets[s];
    const std::string where = "set " + std::to_string(set.index) + ": ";
    if (ResultOf(results[s]) != 0) {
      return where + "request failed: " + MessageOf(results[s]) + " (" +
             std::to_string(ResultOf(results[s])) + ")";
    }
    const auto& outputs = results[s].Get();
    if (outputs.size() != set.outputs.size()) {
      return where + std::to_string(outputs.size()) + " outputs, want " + std::to_string(set.outputs.size());
    }
    for (const auto& want : set.outputs) {
      const auto found = std::find_if(outputs.begin(), outputs.end(), [&](const auto& output) {
        return output.mFeatureName.View() == want.name;
      });
      if (found == outputs.end()) {
        return where + "no output " + want.name;
      }
      const auto tensor = found->mFeature.template Query<ITensorMLFeatureAccessor>();
      if (!tensor) {
        return where + want.name + " is not a tensor";
      }
      if (auto difference = Compare(*tensor, want, c.rtol, c.atol); !difference.empty()) {
        return where + want.name + " " + difference;
      }
    }
  }
  return {};
}

TEST(ConformanceTest, BackendCasesReproduceTheirStoredOutputs) {
  if (kUnavailable != nullptr) {
    GTEST_SKIP() << kUnavailable;
  }
  ASSERT_TRUE(kivcore::config::RunInitializers());
  const auto cases = ReadManifest(kManifest);
  ASSERT_FALSE(cases.empty());

  size_t passed = 0, skipped = 0;
  std::vector<std::string> failures;
  for (const auto& c : cases) {
    if (SkipReasons().contains(c.name)) {
      ++skipped;
      continue;
    }
    if (auto fault = RunCase(c); fault.empty()) {
      ++passed;
    } else {
      failures.push_back(c.name + ": " + fault);
    }
  }

  std::cout << "conformance: " << passed << " passed, " << failures.size() << " failed, " << skipped
            << " skipped of " << cases.size() << " cases\n";
  std::string list;
  for (const auto& failure : failures) {
    list += "  " + failure + "\n";
  }
  EXPECT_TRUE(failures.empty()) << failures.size() << " cases failed:\n" << list;
}

}  // namespace
}  // namespace kivml::testing
