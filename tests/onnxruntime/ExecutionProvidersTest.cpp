// Execution providers as the evaluator relies on them: what sessions on each allow, which failures send a
// GPU model to the CPU, and what every session's options are given.

#include <gtest/gtest.h>

#include <exception>
#include <new>
#include <stdexcept>

#include "gpu/AdapterSelection.h"
#include "gpu/GpuTestSupport.h"
#include "onnxruntime/ConfigureSessionOptions.h"
#include "onnxruntime/DMLSetupException.h"
#include "onnxruntime/ExecutionProviders.h"
#include "onnxruntime/ORTEvaluator.h"
#include "onnxruntime/OrtTestSupport.h"
#include "onnxruntime/SessionSettingsPrinting.h"

namespace kivml::testing {
namespace {

using ort::ExecutionProvider;
using ort::ExecutionProviders;
using ort::SessionSettings;

ort::UniqueSessionOptions NewOptions() {
  OrtSessionOptions* options = nullptr;
  ort::ThrowIfFailed(ort::Api().CreateSessionOptions(&options));
  return ort::UniqueSessionOptions(options);
}

// What a CPU session of `batchSize` is given.
SessionSettings CPUSettings(int64_t batchSize) {
  return {true, ORT_ENABLE_ALL, true, true, ORT_SEQUENTIAL, batchSize, "CPU"};
}

const ort::ORTEvaluator& Backend(const kivcore::classref::InterfaceRef<IMLEvaluator>& evaluator) {
  return dynamic_cast<const ort::ORTEvaluator&>(*evaluator);
}

TEST(ExecutionProvidersTest, TheCpuRunsConcurrentlyOnFreeShapesAndNothingFallsBackFromIt) {
  const ExecutionProvider& cpu = ExecutionProviders::CPU();
  EXPECT_STREQ(cpu.Name(), "CPU");
  EXPECT_TRUE(cpu.AllowsConcurrentRun());
  EXPECT_FALSE(cpu.NeedsFixedShapes());
  EXPECT_FALSE(cpu.IsSetupFailure(std::make_exception_ptr(Ort::Exception("refused", ORT_FAIL))));
  EXPECT_FALSE(cpu.IsSetupFailure(std::make_exception_ptr(ort::DMLSetupException())));
}

TEST(ExecutionProvidersTest, ThePlatformsGpuRunsOnePredictionAtATimeOnFixedShapes) {
  const ExecutionProvider* gpu = ExecutionProviders::PlatformGPU();
  ASSERT_NE(gpu, nullptr);
  EXPECT_STRNE(gpu->Name(), "CPU");
  EXPECT_FALSE(gpu->AllowsConcurrentRun());
  EXPECT_TRUE(gpu->NeedsFixedShapes());
}

TEST(ExecutionProvidersTest, OnlyGpuSetUpFailuresAndOnnxRuntimeErrorsSendAGpuModelToTheCpu) {
  const ExecutionProvider* gpu = ExecutionProviders::PlatformGPU();
  ASSERT_NE(gpu, nullptr);
  EXPECT_TRUE(gpu->IsSetupFailure(std::make_exception_ptr(ort::DMLSetupException(-5))));
  EXPECT_TRUE(gpu->IsSetupFailure(std::make_exception_ptr(Ort::Exception("no kernel", ORT_NOT_IMPLEMENTED))));
  // Anything else is a fault of its own and fails the load.
  EXPECT_FALSE(gpu->IsSetupFailure(std::make_exception_ptr(kivcore::kiv_exception("not initialized", -1))));
  EXPECT_FALSE(gpu->IsSetupFailure(std::make_exception_ptr(std::bad_alloc())));
  EXPECT_FALSE(gpu->IsSetupFailure(std::make_exception_ptr(std::runtime_error("other"))));
  EXPECT_FALSE(gpu->IsSetupFailure(nullptr));
}

class SessionSettingsTest : public OrtTest {};

TEST_F(SessionSettingsTest, EverySessionSharesThePoolsIsFullyOptimisedAndHasItsBatchFixed) {
  EXPECT_EQ(ort::ConfigureSessionOptions(NewOptions().get(), 8, ExecutionProviders::CPU()), CPUSettings(8));
  EXPECT_EQ(ort::ConfigureSessionOptions(NewOptions().get(), 1, ExecutionProviders::CPU()), CPUSettings(1));
}

TEST_F(SessionSettingsTest, GpuSessionsLeaveMemoryPlanningToTheProvider) {
  KIV_REQUIRE_TEST_DEVICE(!gpu::test::TestAdapterName().empty());
  gpu::test::SoftwareAdaptersAccepted accept;
  const ExecutionProvider& gpu = *ExecutionProviders::PlatformGPU();
  SessionSettings expected = CPUSettings(16);
  expected.memoryPattern = false;
  expected.provider = gpu.Name();
  EXPECT_EQ(ort::ConfigureSessionOptions(NewOptions().get(), 16, gpu), expected);
}

TEST_F(SessionSettingsTest, AnEvaluatorKeepsTheSettingsOfTheSessionItRuns) {
  const auto batched = Start(CreateONNXModelFromFile(TestModelPath("add"), false), kBatchedInference);
  ASSERT_TRUE(batched);
  EXPECT_EQ(Backend(batched).GetSessionSettings(),
            CPUSettings(static_cast<int64_t>(GetEvaluatorBatchSize(batched))));

  const gpu::SelectedAdapter hardware = gpu::SelectPlatformAdapter();
  if (hardware.mAdapter) {
    GTEST_SKIP() << "this machine has a hardware adapter: " << hardware.mDescription.mName;
  }
  // A GPU model that falls back runs with the CPU's settings, nothing of the failed attempt.
  const auto fellBack = Start(CreateONNXModelFromFile(TestModelPath("add"), true), kUnbatchedInference);
  ASSERT_TRUE(fellBack);
  EXPECT_EQ(Backend(fellBack).GetSessionSettings(), CPUSettings(1));
}

TEST_F(SessionSettingsTest, AGpuEvaluatorKeepsItsProvidersSettings) {
  KIV_REQUIRE_TEST_DEVICE(!gpu::test::TestAdapterName().empty());
  gpu::test::SoftwareAdaptersAccepted accept;
  const auto evaluator = Start(CreateONNXModelFromFile(TestModelPath("conv"), true), kUnbatchedInference);
  ASSERT_TRUE(evaluator);
  const SessionSettings& settings = Backend(evaluator).GetSessionSettings();
  EXPECT_EQ(settings.provider, ExecutionProviders::PlatformGPU()->Name());
  EXPECT_FALSE(settings.memoryPattern);
}

}  // namespace
}  // namespace kivml::testing
