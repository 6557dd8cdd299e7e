// Adapters over DXGI, in the order DXGI gives for high performance.
#include <dxgi1_6.h>

#include <string>

#include "gpu/GPUAdapterEnumerator.h"
#include "kivcore/config/kiv_exception.h"
#include "kivcore/debug/Trace.h"
#include "kivcore/string/StringConversions.h"
#include "utility/TraceCategory.h"

namespace kivml::gpu {

namespace {

class DXGIAdapter final : public GPUAdapter {
 public:
  explicit DXGIAdapter(ComPtr<IDXGIAdapter3> adapter) : mAdapter(std::move(adapter)) {}

  std::optional<AdapterDescription> ReadDescription() override {
    DXGI_ADAPTER_DESC1 desc{};
    if (FAILED(mAdapter->GetDesc1(&desc))) {
      return std::nullopt;
    }
    AdapterDescription description;
    description.mVendorId = desc.VendorId;
    description.mDeviceId = desc.DeviceId;
    description.mFlags = desc.Flags;
    description.mName = kivcore::string::ToStdString(kivcore::string::WcharToUTF16(desc.Description));
    return description;
  }

  uint64_t QueryAvailableMemory() noexcept override {
    DXGI_QUERY_VIDEO_MEMORY_INFO info{};
    if (FAILED(mAdapter->QueryVideoMemoryInfo(0, DXGI_MEMORY_SEGMENT_GROUP_LOCAL, &info))) {
      return 0;
    }
    return info.Budget > info.CurrentUsage ? info.Budget - info.CurrentUsage : 0;
  }

  ComPtr<ID3D12Device> CreateD3D12Device() override {
    ID3D12Device* device = nullptr;
    const HRESULT result = D3D12CreateDevice(mAdapter.get(), D3D_FEATURE_LEVEL_11_0, IID_ID3D12Device,
                                             reinterpret_cast<void**>(&device));
    if (FAILED(result)) {
      throw kivcore::kiv_exception("D3D12CreateDevice failed.", result);
    }
    return AdoptCom(device);
  }

 private:
  const ComPtr<IDXGIAdapter3> mAdapter;
};

class DXGIAdapterEnumerator final : public GPUAdapterEnumerator {
 public:
  explicit DXGIAdapterEnumerator(ComPtr<IDXGIFactory6> factory) : mFactory(std::move(factory)) {}

  std::unique_ptr<GPUAdapter> EnumAdapter(size_t index) override {
    IDXGIAdapter3* adapter = nullptr;
    // Any failure, DXGI_ERROR_NOT_FOUND past the last adapter above all, ends the list.
    if (FAILED(mFactory->EnumAdapterByGpuPreference(static_cast<UINT>(index),
                                                    DXGI_GPU_PREFERENCE_HIGH_PERFORMANCE, IID_IDXGIAdapter3,
                                                    reinterpret_cast<void**>(&adapter)))) {
      return nullptr;
    }
    return std::make_unique<DXGIAdapter>(AdoptCom(adapter));
  }

 private:
  const ComPtr<IDXGIFactory6> mFactory;
};

}  // namespace

std::unique_ptr<GPUAdapterEnumerator> CreatePlatformAdapterEnumerator() {
  IDXGIFactory6* factory = nullptr;
  const HRESULT result = CreateDXGIFactory1(IID_IDXGIFactory6, reinterpret_cast<void**>(&factory));
  if (FAILED(result)) {
    // Like the rest of the GPU set-up's messages, it ends its own line.
    KIV_TRACE(kTraceCategory, 5,
              "Failed to create DXGI factory: " + std::to_string(static_cast<int32_t>(result)) + "\n");
    throw kivcore::kiv_exception("CreateDXGIFactory1 failed.", result);
  }
  return std::make_unique<DXGIAdapterEnumerator>(AdoptCom(factory));
}

}  // namespace kivml::gpu
