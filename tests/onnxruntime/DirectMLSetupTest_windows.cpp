// The DirectML set-up's own failure path. CI reaches it under Wine with Vulkan hidden (the ctest entry
// kivml.onnxruntime.DirectMLWithoutVulkan): DXGI still lists its adapter, but no Direct3D 12 device can
// be made on it.

#include <gtest/gtest.h>

#include <string>

#include "gpu/AdapterSelection.h"
#include "kivcore/config/kiv_exception.h"
#include "onnxruntime/OrtTestSupport.h"
#include "support/TraceCapture.h"

namespace kivml::testing {
namespace {

using DirectMLSetupTest = OrtTest;

TEST_F(DirectMLSetupTest, AnAdapterWithoutDevicesFallsBackToTheCpuWithTheDeviceError) {
  const gpu::SelectedAdapter selected = gpu::SelectPlatformAdapter();
  if (!selected.mAdapter) {
    GTEST_SKIP() << "no hardware adapter: GpuEvaluatorTest covers the fall-back without one";
  }
  int code = 0;
  try {
    selected.mAdapter->CreateD3D12Device();
    GTEST_SKIP() << selected.mDescription.mName << " makes Direct3D 12 devices";
  } catch (const kivcore::kiv_exception& exception) {
    code = exception.GetResult();
  }

  TraceCapture traces;
  ExpectAddModelAdds(true);
  EXPECT_TRUE(traces.Saw("Selected GPU: " + selected.mDescription.mName + "\n"));
  // The result code as a signed decimal, as every set-up failure is traced, and the line's own end.
  EXPECT_TRUE(traces.Saw("Failed to create DX device: " + std::to_string(code) + "\n"));
  EXPECT_TRUE(traces.Saw("Falling back to CPU ORT evaluation"));
}

}  // namespace
}  // namespace kivml::testing
