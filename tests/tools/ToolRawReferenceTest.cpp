// The bench's raw ONNX Runtime reference runs with the session options of the evaluator it is compared
// with: the same batch size, the same provider, and settings the library itself gave.

#include <gtest/gtest.h>

#include "RawOrtSession.h"
#include "gpu/GpuTestSupport.h"
#include "onnxruntime/ORTEvaluator.h"
#include "onnxruntime/OrtTestSupport.h"
#include "onnxruntime/SessionSettingsPrinting.h"

namespace kivml::cli {
namespace {

using kivcore::classref::InterfaceRef;

// The reference the bench sets beside `evaluator`, as it does: one row per Run beside an unbatched
// evaluator, the evaluator's batch beside a batched one.
void ExpectReferenceMatches(const char* model, const InterfaceRef<IMLEvaluator>& evaluator, bool batched,
                            bool gpu) {
  const auto batchSize = static_cast<int64_t>(batched ? GetEvaluatorBatchSize(evaluator) : 1);
  const RawOrtSession raw = RawOrtSession::ForInference(testing::TestModelPath(model), batchSize, gpu);
  ASSERT_TRUE(raw.LibrarySettings().has_value());
  EXPECT_EQ(*raw.LibrarySettings(), dynamic_cast<const ort::ORTEvaluator&>(*evaluator).GetSessionSettings());
}

class KivmlToolRawReference : public testing::OrtTest {};

TEST_F(KivmlToolRawReference, TakesTheOptionsOfTheCpuEvaluatorItIsComparedWith) {
  for (const BatchedInference mode : {kBatchedInference, kUnbatchedInference}) {
    const auto evaluator = Start(CreateONNXModelFromFile(testing::TestModelPath("add"), false), mode);
    ASSERT_TRUE(evaluator);
    ExpectReferenceMatches("add", evaluator, mode == kBatchedInference, false);
  }
}

TEST_F(KivmlToolRawReference, TakesTheOptionsOfTheGpuEvaluatorItIsComparedWith) {
  KIV_REQUIRE_TEST_DEVICE(!gpu::test::TestAdapterName().empty());
  gpu::test::SoftwareAdaptersAccepted accept;
  const auto evaluator =
      Start(CreateONNXModelFromFile(testing::TestModelPath("conv"), true), kBatchedInference);
  ASSERT_TRUE(evaluator);
  ExpectReferenceMatches("conv", evaluator, true, true);
}

TEST_F(KivmlToolRawReference, TheOtherSessionsKeepOptionsOfTheirOwn) {
  // The hand-written reference deliberately runs on ONNX Runtime's defaults; reading a model's interface
  // needs no optimised graph.
  EXPECT_FALSE(RawOrtSession::WithDefaultOptions(testing::TestModelPath("add")).LibrarySettings());
  EXPECT_FALSE(RawOrtSession::ForDescription(testing::TestModelPath("add")).LibrarySettings());
}

}  // namespace
}  // namespace kivml::cli
