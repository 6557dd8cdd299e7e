// The WebGPU provider runs on the first adapter of the platform's order whatever the library selects, so
// the set-up uses it only when the selected adapter is that first one.

#include <gtest/gtest.h>

#include "gpu/GpuTestSupport.h"
#include "onnxruntime/OrtTestSupport.h"
#include "support/TraceCapture.h"

namespace kivml::testing {
namespace {

using WebGPUSetupTest = OrtTest;

TEST_F(WebGPUSetupTest, AnAdapterTheProviderWouldNotRunOnFallsBackToTheCpu) {
  // A virtual GPU behind a software rasterizer, as Dawn ranks them: the rule selects the virtual GPU, but
  // the provider would run the model on the rasterizer.
  gpu::test::AdaptersReplaced adapters(
      {gpu::AdapterDescription{0x10005, 0, gpu::AdapterDescription::kSoftwareFlag, "llvmpipe"},
       gpu::AdapterDescription{0x15AD, 0x405, 0, "SVGA3D"}});
  TraceCapture traces;
  ExpectAddModelAdds(true);
  EXPECT_TRUE(traces.Saw("WebGPU would run on llvmpipe, not on the selected SVGA3D\n"));
  EXPECT_FALSE(traces.Saw("Selected GPU: SVGA3D\n"));
  EXPECT_TRUE(traces.Saw("Falling back to CPU ORT evaluation"));
}

}  // namespace
}  // namespace kivml::testing
