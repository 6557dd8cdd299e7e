#pragma once
// A pool of default heaps, which hold only buffers: GPU-only memory, the fastest for the GPU and out of the
// CPU's reach.

#include "kivml/gpu/DX12HeapRecycler.h"
#include "kivml/kivml_export.h"

namespace kivml::gpu {

class KIVML_EXPORT DX12DefaultHeapRecycler : public DX12HeapRecycler {
 public:
  using DX12HeapRecycler::DX12HeapRecycler;
  ~DX12DefaultHeapRecycler() override;

  D3D12_HEAP_DESC GetHeapDesc() const override;
};

}  // namespace kivml::gpu
