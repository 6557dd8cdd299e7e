#pragma once
// One adapter of the platform, as the adapter enumerator hands it out.

#include <cstdint>
#include <optional>

#include "gpu/AdapterDescription.h"
#include "kivml/gpu/D3D12.h"

namespace kivml::gpu {

class GPUAdapter {
 public:
  virtual ~GPUAdapter() = default;

  // Empty when the platform could not describe the adapter; adapter choice then skips it.
  virtual std::optional<AdapterDescription> ReadDescription() = 0;

  // Bytes of device-local memory the process may still use: the budget minus current usage. 0 when the
  // platform cannot tell.
  virtual uint64_t QueryAvailableMemory() noexcept = 0;

  // A Direct3D 12 device on this adapter (feature level 11_0). Throws kiv_exception with the failing
  // call's result code.
  virtual ComPtr<ID3D12Device> CreateD3D12Device() = 0;
};

}  // namespace kivml::gpu
