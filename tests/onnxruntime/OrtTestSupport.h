#pragma once
// Models, requests and evaluators for the ONNX Runtime tests. The models are written at build time into
// KIVML_TEST_MODELS_DIR by tests/models/make_test_models.py.

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <utility>
#include <vector>

#include "kivcore/allocator/RecycledMemory.h"
#include "kivcore/config/InitializerRegistrar.h"
#include "kivml/CreatePreferredEvaluator.h"
#include "kivml/ITensorMLFeatureAccessor.h"
#include "kivml/ONNXModelFactory.h"
#include "kivml/utility/TensorFactories.h"
#include "support/FutureChecks.h"

namespace kivml::testing {

inline std::filesystem::path TestModelPath(const char* name) {
  return std::filesystem::path(KIVML_TEST_MODELS_DIR) / (std::string(name) + ".onnx");
}

// A packed tensor of `shape` holding `values` (of the element type T).
template <class T>
kivcore::classref::InterfaceRef<IMLFeature> MakeTensor(ShapeType shape, const std::vector<T>& values) {
  auto memory = kivcore::allocator::RecycledMemory::Create(values.size() * sizeof(T));
  if (!values.empty()) {
    std::memcpy(memory->Buffer(), values.data(), values.size() * sizeof(T));
  }
  return utility::CreatePackedTensor(std::move(memory), sizeof(T), std::move(shape));
}

inline utility::FeatureContainerVector MakeInputs(
    std::initializer_list<std::pair<const char*, kivcore::classref::InterfaceRef<IMLFeature>>> features) {
  utility::FeatureContainerVector inputs;
  for (const auto& [name, feature] : features) {
    inputs.push_back({kivcore::utility::ImmutableString::Create(name), feature});
  }
  return inputs;
}

// The elements of the output named `name`, read as T; empty when there is no such output.
template <class T>
std::vector<T> ValuesOf(const utility::FeatureContainerVector& outputs, const char* name) {
  for (const auto& output : outputs) {
    if (output.mFeatureName.View() == name) {
      const auto tensor = output.mFeature.Query<ITensorMLFeatureAccessor>();
      const auto* data = static_cast<const T*>(tensor->GetData());
      return std::vector<T>(data, data + tensor->GetCount());
    }
  }
  return {};
}

// Runs the library's initializers once per test program.
class OrtTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_TRUE(kivcore::config::RunInitializers()); }

  // A started evaluator, or a failed assertion.
  static kivcore::classref::InterfaceRef<IMLEvaluator> Start(kivcore::classref::InterfaceRef<IMLModel> model,
                                                             BatchedInference batched) {
    return Start(std::move(model), EvaluatorOptions{batched});
  }
  static kivcore::classref::InterfaceRef<IMLEvaluator> Start(kivcore::classref::InterfaceRef<IMLModel> model,
                                                             const EvaluatorOptions& options) {
    auto future = CreatePreferredEvaluator(std::move(model), options);
    EXPECT_EQ(ResultOf(future), 0) << MessageOf(future);
    return future.HasValue() ? future.Get() : nullptr;
  }

  // Runs one request through the "add" model, on the GPU when asked (or wherever the evaluator falls back
  // to), and checks the sum.
  static void ExpectAddModelAdds(bool onGpu) {
    const auto evaluator = Start(CreateONNXModelFromFile(TestModelPath("add"), onGpu), kUnbatchedInference);
    ASSERT_TRUE(evaluator);
    auto future = evaluator->QueueFeatures(MakeInputs({{"input1", MakeTensor<float>({1, 3}, {1, 1, 1})},
                                                       {"input2", MakeTensor<float>({1, 3}, {2, 2, 2})}}));
    ASSERT_EQ(ResultOf(future), 0) << MessageOf(future);
    EXPECT_EQ(ValuesOf<float>(future.Get(), "output1"), std::vector<float>({3.0F, 3.0F, 3.0F}));
  }
};

}  // namespace kivml::testing
