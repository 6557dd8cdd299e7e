// GPU evaluation on Linux: ONNX Runtime's WebGPU provider, which runs Dawn over Vulkan. The provider
// (ONNX Runtime 1.30) cannot be given an adapter: no option names one (it takes a ready Dawn device, but
// ONNX Runtime does not export Dawn to make one with), GetEpDevices lists PCI devices only (none for a
// software rasterizer), and the provider made for an OrtEpDevice ignores its hardware device.
// Dawn runs on the first device of its own high-performance ranking, which is the first adapter of the
// platform's order. So the model runs on the GPU only when the shared rule selected that first adapter;
// otherwise (the first is a software rasterizer, say) it runs on the CPU rather than on an adapter the rule
// did not choose. Trace messages end their own line, so that a host's trace sink can write them as they
// come.
#include <memory>
#include <optional>
#include <string>

#include "gpu/AdapterSelection.h"
#include "kivcore/debug/Trace.h"
#include "kivml/ResultCodes.h"
#include "onnxruntime/DMLSetupException.h"
#include "onnxruntime/ORTApi.h"
#include "onnxruntime/WebGPUExecutionProvider.h"
#include "utility/TraceCategory.h"

namespace kivml::ort {

namespace {

// The name of the adapter Dawn takes.
std::string FirstAdapterName() {
  const std::unique_ptr<gpu::GPUAdapter> first = gpu::CreateAdapterEnumerator()->EnumAdapter(0);
  const std::optional<gpu::AdapterDescription> description = first ? first->ReadDescription() : std::nullopt;
  return description ? description->mName : "an adapter it cannot describe";
}

void AppendWebGPU(OrtSessionOptions* options) {
  // The platform's order is Dawn's ranking for exactly this request.
  const char* keys[] = {"dawnBackendType", "powerPreference"};
  const char* values[] = {"Vulkan", "high-performance"};
  const OrtApi& api = Api();
  OrtStatus* status = api.SessionOptionsAppendExecutionProvider(options, "WebGPU", keys, values, 2);
  if (status != nullptr) {
    const int code = MakeGpuProviderRejected(static_cast<unsigned>(api.GetErrorCode(status)));
    const std::string message = api.GetErrorMessage(status);
    api.ReleaseStatus(status);
    KIV_TRACE(kTraceCategory, 5, "Failed to append the WebGPU execution provider: " + message + "\n");
    throw DMLSetupException(code);
  }
}

}  // namespace

void WebGPUExecutionProvider::AppendProvider(OrtSessionOptions* options) const {
  const gpu::SelectedAdapter selected = gpu::SelectPlatformAdapter();
  if (!selected.mAdapter) {
    KIV_TRACE(kTraceCategory, 5, "Failed to find high performance GPU device\n");
    throw DMLSetupException();
  }
  if (selected.mIndex != 0) {
    KIV_TRACE(kTraceCategory, 5,
              "WebGPU would run on " + FirstAdapterName() + ", not on the selected " +
                  selected.mDescription.mName + "\n");
    throw DMLSetupException();
  }
  KIV_TRACE(kTraceCategory, 7, "Selected GPU: " + selected.mDescription.mName + "\n");
  AppendWebGPU(options);
}

}  // namespace kivml::ort
