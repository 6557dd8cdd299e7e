// GPU evaluation on Windows: ONNX Runtime's DirectML provider on the first hardware adapter in DXGI's
// high-performance order. Every object made here is released when the function returns; the provider
// holds its own references to the DirectML device and the queue. Trace messages end their own line, so
// that a host's trace sink can write them as they come.
#include <string>

#include "gpu/AdapterSelection.h"
#include "kivcore/config/kiv_exception.h"
#include "kivcore/debug/Trace.h"
#include "kivml/gpu/D3D12.h"
#include "onnxruntime/DMLSetupException.h"
#include "onnxruntime/DirectMLExecutionProvider.h"
#include "onnxruntime/ORTApi.h"
#include "utility/TraceCategory.h"

namespace kivml::ort {

namespace {

// The little of DirectML and of ONNX Runtime's DirectML provider that is called here; neither ships a
// header that every Windows toolchain has.
constexpr GUID kIIDDMLDevice = {0x6dbd6437, 0x96fd, 0x423f, {0xa9, 0x8c, 0xae, 0x5e, 0x7c, 0x2a, 0x57, 0x3f}};
constexpr int kDMLCreateDeviceFlagNone = 0;
using DMLCreateDeviceFunction = HRESULT(WINAPI*)(ID3D12Device* device, int flags, REFIID iid, void** object);

// The leading members of ONNX Runtime's OrtDmlApi, in its order.
struct OrtDmlApi {
  OrtStatus*(ORT_API_CALL* SessionOptionsAppendExecutionProvider_DML)(OrtSessionOptions* options,
                                                                      int deviceId);
  OrtStatus*(ORT_API_CALL* SessionOptionsAppendExecutionProvider_DML1)(OrtSessionOptions* options,
                                                                       IUnknown* dmlDevice,
                                                                       ID3D12CommandQueue* queue);
};

std::string HResultText(HRESULT result) {
  return std::to_string(static_cast<int32_t>(result));
}

// DirectML.dll, the one ONNX Runtime loads too, is found at run time: no import library is needed to
// build, and a missing DLL is one more set-up failure rather than a process that cannot start.
HRESULT CreateDMLDevice(ID3D12Device* device, gpu::ComPtr<IUnknown>& dmlDevice) {
  static const HMODULE library = LoadLibraryW(L"DirectML.dll");
  if (library == nullptr) {
    return HRESULT_FROM_WIN32(ERROR_MOD_NOT_FOUND);
  }
  const auto create = reinterpret_cast<DMLCreateDeviceFunction>(
      reinterpret_cast<void*>(GetProcAddress(library, "DMLCreateDevice")));
  if (create == nullptr) {
    return HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND);
  }
  IUnknown* created = nullptr;
  const HRESULT result =
      create(device, kDMLCreateDeviceFlagNone, kIIDDMLDevice, reinterpret_cast<void**>(&created));
  if (SUCCEEDED(result)) {
    dmlDevice = gpu::AdoptCom(created);
  }
  return result;
}

}  // namespace

void DirectMLExecutionProvider::AppendProvider(OrtSessionOptions* options) const {
  const void* providerApi = nullptr;
  ThrowIfFailed(Api().GetExecutionProviderApi("DML", 16, &providerApi));
  const auto* dmlApi = static_cast<const OrtDmlApi*>(providerApi);

  const gpu::SelectedAdapter selected = gpu::SelectPlatformAdapter();
  if (!selected.mAdapter) {
    KIV_TRACE(kTraceCategory, 5, "Failed to find high performance GPU device\n");
    throw DMLSetupException();
  }
  KIV_TRACE(kTraceCategory, 7, "Selected GPU: " + selected.mDescription.mName + "\n");

  gpu::ComPtr<ID3D12Device> device;
  try {
    device = selected.mAdapter->CreateD3D12Device();
  } catch (const kivcore::kiv_exception& exception) {
    KIV_TRACE(kTraceCategory, 5, "Failed to create DX device: " + HResultText(exception.GetResult()) + "\n");
    throw DMLSetupException(exception.GetResult());
  }

  D3D12_COMMAND_QUEUE_DESC queueDesc{};  // direct, normal priority, no flags, node 0
  ID3D12CommandQueue* createdQueue = nullptr;
  HRESULT result =
      device->CreateCommandQueue(&queueDesc, IID_ID3D12CommandQueue, reinterpret_cast<void**>(&createdQueue));
  if (FAILED(result)) {
    KIV_TRACE(kTraceCategory, 5,
              "Failed to create DX inference command queue: " + HResultText(result) + "\n");
    throw DMLSetupException(static_cast<int>(result));
  }
  const gpu::ComPtr<ID3D12CommandQueue> queue = gpu::AdoptCom(createdQueue);

  gpu::ComPtr<IUnknown> dmlDevice;
  result = CreateDMLDevice(device.get(), dmlDevice);
  if (FAILED(result)) {
    KIV_TRACE(kTraceCategory, 5, "Failed to create DML device: " + HResultText(result) + "\n");
    throw DMLSetupException(static_cast<int>(result));
  }

  ThrowIfFailed(dmlApi->SessionOptionsAppendExecutionProvider_DML1(options, dmlDevice.get(), queue.get()));
}

}  // namespace kivml::ort
