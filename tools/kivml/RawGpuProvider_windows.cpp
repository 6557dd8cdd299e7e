#include "RawOrtSession.h"

namespace kivml::cli {

namespace {

// ONNX Runtime's DirectML provider table, up to the member used here; the npm package ships no header for it.
enum class DmlPerformancePreference : int { kDefault = 0, kHighPerformance = 1, kMinimumPower = 2 };
enum class DmlDeviceFilter : unsigned { kGpu = 1 };
struct DmlDeviceOptions {
  DmlPerformancePreference mPreference;
  DmlDeviceFilter mFilter;
};
struct OrtDmlApi {
  void* mAppendWithDeviceId;
  void* mAppendWithDevice;
  void* mCreateGPUAllocationFromD3DResource;
  void* mFreeGPUAllocation;
  void* mGetD3D12ResourceFromAllocation;
  OrtStatus*(ORT_API_CALL* SessionOptionsAppendExecutionProvider_DML2)(OrtSessionOptions* options,
                                                                       DmlDeviceOptions* deviceOptions);
};

}  // namespace

// DirectML on the high-performance GPU, as the library's GPU evaluator uses it.
void AppendRawGpuProvider(Ort::SessionOptions& options) {
  const void* api = nullptr;
  Ort::ThrowOnError(Ort::GetApi().GetExecutionProviderApi("DML", 16, &api));
  DmlDeviceOptions device{DmlPerformancePreference::kHighPerformance, DmlDeviceFilter::kGpu};
  Ort::ThrowOnError(
      static_cast<const OrtDmlApi*>(api)->SessionOptionsAppendExecutionProvider_DML2(options, &device));
  options.DisableMemPattern();
  options.SetExecutionMode(ORT_SEQUENTIAL);
}

}  // namespace kivml::cli
