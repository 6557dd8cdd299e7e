// Models that ask for the GPU. CI machines have only a software rasterizer, which the library never
// chooses by itself: there a GPU model falls back to the CPU, and with software adapters accepted the
// whole GPU branch runs for real and must agree with the CPU.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <string>
#include <vector>

#include "gpu/GpuTestSupport.h"
#include "onnxruntime/OrtTestSupport.h"
#include "support/TraceCapture.h"
#include "support/Wine.h"

namespace kivml::testing {
namespace {

using kivcore::classref::InterfaceRef;
using Future = kivcore::async::Future<utility::FeatureContainerVector>;

std::vector<float> RandomImage(std::mt19937& random) {
  std::uniform_real_distribution<float> value(-1.0F, 1.0F);
  std::vector<float> image(3 * 8 * 8);
  std::generate(image.begin(), image.end(), [&] { return value(random); });
  return image;
}

// Class probabilities of every image, one request each, all queued before any is awaited.
std::vector<std::vector<float>> Classify(const InterfaceRef<IMLEvaluator>& evaluator,
                                         const std::vector<std::vector<float>>& images) {
  std::vector<Future> futures;
  for (const auto& image : images) {
    futures.push_back(
        evaluator->QueueFeatures(MakeInputs({{"image", MakeTensor<float>({1, 3, 8, 8}, image)}})));
  }
  std::vector<std::vector<float>> probabilities;
  for (auto& future : futures) {
    EXPECT_EQ(ResultOf(future), 0) << MessageOf(future);
    probabilities.push_back(future.HasValue() ? ValuesOf<float>(future.Get(), "probs")
                                              : std::vector<float>());
  }
  return probabilities;
}

void ExpectClose(const std::vector<std::vector<float>>& gpu, const std::vector<std::vector<float>>& cpu) {
  ASSERT_EQ(gpu.size(), cpu.size());
  for (size_t row = 0; row < gpu.size(); ++row) {
    ASSERT_EQ(gpu[row].size(), 5U) << "row " << row;
    ASSERT_EQ(cpu[row].size(), 5U) << "row " << row;
    for (size_t k = 0; k < 5; ++k) {
      EXPECT_NEAR(gpu[row][k], cpu[row][k], 1e-4F) << "row " << row << ", class " << k;
    }
  }
}

class GpuEvaluatorTest : public OrtTest {
 protected:
  void SetUp() override {
    mAdapterName = gpu::test::TestAdapterName();
    mRandom.seed(11);
  }

  // Classifies `count` random images on the CPU and then, with software adapters accepted, with a GPU
  // evaluator, which must get the GPU and agree with the CPU. Returns that evaluator (null on failure).
  InterfaceRef<IMLEvaluator> CompareWithCpu(size_t count, BatchedInference batching) {
    std::vector<std::vector<float>> images(count);
    for (auto& image : images) {
      image = RandomImage(mRandom);
    }
    const auto cpu = Start(CreateONNXModelFromFile(TestModelPath("conv"), false), kUnbatchedInference);
    if (!cpu) {
      return nullptr;
    }
    const auto expected = Classify(cpu, images);

    gpu::test::SoftwareAdaptersAccepted accept;
    TraceCapture traces;
    auto evaluator = Start(CreateONNXModelFromFile(TestModelPath("conv"), true), batching);
    if (evaluator) {
      EXPECT_TRUE(traces.Saw("Selected GPU: " + mAdapterName + "\n"));
      EXPECT_FALSE(traces.Saw("Falling back to CPU ORT evaluation"));
      const auto probabilities = Classify(evaluator, images);
      if (!RunningUnderWine()) {
        ExpectClose(probabilities, expected);
      }
    }
    return evaluator;
  }

  std::string mAdapterName;
  std::mt19937 mRandom;
};

TEST_F(GpuEvaluatorTest, FallsBackToTheCpuWithoutAHardwareAdapter) {
  const gpu::SelectedAdapter hardware = gpu::SelectPlatformAdapter();
  if (hardware.mAdapter) {
    GTEST_SKIP() << "this machine has a hardware adapter: " << hardware.mDescription.mName;
  }
  TraceCapture traces;
  ExpectAddModelAdds(true);
  EXPECT_TRUE(traces.Saw("Failed to find high performance GPU device\n"));
  EXPECT_TRUE(traces.Saw("Falling back to CPU ORT evaluation"));
}

// Under Wine the set-up runs for real, but DirectML's numbers there cannot be trusted: no comparison.
constexpr const char* kNoDirectMLNumbersUnderWine = "DirectML's outputs are not compared under Wine";

TEST_F(GpuEvaluatorTest, SoftwareAdapterRunsTheModelLikeTheCpu) {
  KIV_REQUIRE_TEST_DEVICE(!mAdapterName.empty());
  EXPECT_TRUE(CompareWithCpu(6, kUnbatchedInference));
  if (RunningUnderWine()) {
    GTEST_SKIP() << kNoDirectMLNumbersUnderWine;
  }
}

TEST_F(GpuEvaluatorTest, SoftwareAdapterRunsPaddedBatchesLikeTheCpu) {
  KIV_REQUIRE_TEST_DEVICE(!mAdapterName.empty());
  // More requests than one batch holds, and a last batch that needs padding.
  const auto evaluator = CompareWithCpu(150, kBatchedInference);
  ASSERT_TRUE(evaluator);
  // Sized from the adapter's free memory; without any the smallest batch, 8, would be chosen.
  EXPECT_GT(GetEvaluatorBatchSize(evaluator), 8U);
  if (RunningUnderWine()) {
    GTEST_SKIP() << kNoDirectMLNumbersUnderWine;
  }
}

TEST_F(GpuEvaluatorTest, AGpuSessionAskedForLanesRunsOneAndSaysSo) {
  KIV_REQUIRE_TEST_DEVICE(!mAdapterName.empty());
  gpu::test::SoftwareAdaptersAccepted accept;
  TraceCapture traces;
  const auto evaluator =
      Start(CreateONNXModelFromFile(TestModelPath("conv"), true), EvaluatorOptions{kBatchedInference, 3});
  ASSERT_TRUE(evaluator);
  EXPECT_EQ(GetEvaluatorPredictionLanes(evaluator), 1U);
  EXPECT_TRUE(traces.Saw("The session cannot run predictions concurrently: 1 prediction lane instead of 3"));
  std::vector<std::vector<float>> images(20);
  for (auto& image : images) {
    image = RandomImage(mRandom);
  }
  for (const auto& probabilities : Classify(evaluator, images)) {
    EXPECT_EQ(probabilities.size(), 5U);
  }
}

TEST_F(GpuEvaluatorTest, AGpuModelThatFallsBackToTheCpuKeepsItsLanes) {
  const gpu::SelectedAdapter hardware = gpu::SelectPlatformAdapter();
  if (hardware.mAdapter) {
    GTEST_SKIP() << "this machine has a hardware adapter: " << hardware.mDescription.mName;
  }
  const auto evaluator =
      Start(CreateONNXModelFromFile(TestModelPath("add"), true), EvaluatorOptions{kUnbatchedInference, 2});
  ASSERT_TRUE(evaluator);
  EXPECT_EQ(GetEvaluatorPredictionLanes(evaluator), 2U);
}

}  // namespace
}  // namespace kivml::testing
