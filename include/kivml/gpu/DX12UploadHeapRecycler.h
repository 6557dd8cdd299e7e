#pragma once
// A pool of upload heaps, which hold only buffers: memory the CPU writes and the GPU reads, where inputs are
// staged.

#include "kivml/gpu/DX12HeapRecycler.h"
#include "kivml/kivml_export.h"

namespace kivml::gpu {

class KIVML_EXPORT DX12UploadHeapRecycler : public DX12HeapRecycler {
 public:
  using DX12HeapRecycler::DX12HeapRecycler;
  ~DX12UploadHeapRecycler() override;

  D3D12_HEAP_DESC GetHeapDesc() const override;
};

}  // namespace kivml::gpu
