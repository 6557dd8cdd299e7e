// The codes a host meets are part of the interface: their values must never move.

#include <gtest/gtest.h>

#include "kivml/IMLEvaluator.h"
#include "kivml/ResultCodes.h"
#include "onnxruntime/DMLSetupException.h"

namespace kivml {
namespace {

TEST(ResultCodesTest, ErrorCodesAreTheFacilityWithSignBitAndIndex) {
  const int codes[] = {eNoInputFeatures, eBadFeatureDescriptions, eBadFeature, eInferenceFailure,
                       eModelExecutionTerminated};
  for (unsigned index = 1; index <= 5; ++index) {
    const int code = codes[index - 1];
    EXPECT_EQ(static_cast<unsigned>(code), 0xED6C0000u + index);
    EXPECT_EQ(static_cast<unsigned>(code), 0x80000000u | static_cast<unsigned>(eKIVML) | index);
    EXPECT_LT(code, 0);
  }
  EXPECT_EQ(eKIVML, 1835794432);
  EXPECT_EQ(eModelExecutionTerminated, -311689211);
  EXPECT_EQ(static_cast<int>(IMLEvaluator::kPause), 0);
  EXPECT_EQ(static_cast<int>(IMLEvaluator::kResume), 1);
}

TEST(ResultCodesTest, CodesBeyondTheFiveKeepTheirValues) {
  EXPECT_EQ(static_cast<unsigned>(eNoSession), 0xED6C0007u);
  EXPECT_EQ(static_cast<unsigned>(eNoEvaluator), 0xA00F0001u);
  EXPECT_EQ(static_cast<unsigned>(eNoSuitableAdapter), 0xF865001Eu);
  EXPECT_EQ(ort::DMLSetupException().GetResult(), eNoSuitableAdapter);
  // ONNX Runtime's ORT_FAIL is 1, ORT_NOT_IMPLEMENTED 9.
  EXPECT_EQ(static_cast<unsigned>(MakeGpuProviderRejected(1)), 0xED6C0101u);
  EXPECT_EQ(MakeGpuProviderRejected(9) - eGpuProviderRejected, 9);
}

}  // namespace
}  // namespace kivml
