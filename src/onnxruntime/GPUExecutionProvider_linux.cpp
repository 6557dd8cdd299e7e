// GPU evaluation on Linux: ONNX Runtime's WebGPU provider, which runs Dawn over Vulkan. The adapter is
// chosen by the shared rule first, so a machine without real GPU hardware falls back to the CPU instead
// of running on a software rasterizer. Trace messages end their own line, so that a host's trace sink can
// write them as they come.
#include <string>

#include "gpu/AdapterSelection.h"
#include "kivcore/debug/Trace.h"
#include "kivml/ResultCodes.h"
#include "onnxruntime/DMLSetupException.h"
#include "onnxruntime/GPUExecutionProvider.h"
#include "onnxruntime/ORTApi.h"
#include "utility/TraceCategory.h"

namespace kivml::ort {

namespace {

// A rejected provider is reported as 0x80000000 | eKIVML | 0x100 + ONNX Runtime's error code.
int ProviderErrorCode(OrtErrorCode code) {
  return MakeKIVMLError(0x100u + static_cast<unsigned>(code));
}

void AppendWebGPU(OrtSessionOptions* options) {
  // Dawn picks its adapter by preference alone; high performance matches the adapter chosen above.
  const char* keys[] = {"dawnBackendType", "powerPreference"};
  const char* values[] = {"Vulkan", "high-performance"};
  const OrtApi& api = Api();
  OrtStatus* status = api.SessionOptionsAppendExecutionProvider(options, "WebGPU", keys, values, 2);
  if (status != nullptr) {
    const int code = ProviderErrorCode(api.GetErrorCode(status));
    const std::string message = api.GetErrorMessage(status);
    api.ReleaseStatus(status);
    KIV_TRACE(kTraceCategory, 5, "Failed to append the WebGPU execution provider: " + message + "\n");
    throw DMLSetupException(code);
  }
}

}  // namespace

void AppendGPUExecutionProvider(OrtSessionOptions* options) {
  const gpu::SelectedAdapter selected = gpu::SelectPlatformAdapter();
  if (!selected.mAdapter) {
    KIV_TRACE(kTraceCategory, 5, "Failed to find high performance GPU device\n");
    throw DMLSetupException();
  }
  KIV_TRACE(kTraceCategory, 7, "Selected GPU: " + selected.mDescription.mName + "\n");
  AppendWebGPU(options);
  // GPU providers allocate their own buffers; the CPU memory pattern planner only gets in their way.
  ThrowIfFailed(Api().DisableMemPattern(options));
  ThrowIfFailed(Api().SetSessionExecutionMode(options, ORT_SEQUENTIAL));
}

}  // namespace kivml::ort
