#pragma once
// A pool of Direct3D 12 heaps for buffers, all of one description (GetHeapDesc, given by the subclass for
// its heap type). A heap is sized as `heapAlignmentUnits` 64 KiB units plus `heapBaseBytes`. Heaps are made
// on the pool's queue, see BufferRecycler.

#include <cstddef>
#include <cstdint>
#include <memory>

#include "kivcore/async/AsyncExecutor.h"
#include "kivml/gpu/BufferRecycler.h"
#include "kivml/gpu/D3D12.h"
#include "kivml/gpu/DX12HeapWrapper.h"
#include "kivml/kivml_export.h"

namespace kivml::gpu {

class KIVML_EXPORT DX12HeapRecycler : public BufferRecycler<std::shared_ptr<DX12HeapWrapper>> {
 public:
  DX12HeapRecycler(std::shared_ptr<kivcore::async::AsyncExecutor> parentExecutor, size_t bufferCount,
                   size_t heapBaseBytes, size_t heapAlignmentUnits, ComPtr<ID3D12Device> device);
  ~DX12HeapRecycler() override;

  // The description every heap of the pool is made with.
  virtual D3D12_HEAP_DESC GetHeapDesc() const = 0;

 protected:
  // A new heap; the device's refusal propagates as kiv_exception("CreateHeap failed.", result).
  std::shared_ptr<DX12HeapWrapper> CreateBuffer() override;

  // The description of this pool's heaps for a heap type: buffers only, 64 KiB aligned, on node 1.
  D3D12_HEAP_DESC DescribeHeaps(D3D12_HEAP_TYPE type) const noexcept;

  const uint64_t mHeapBaseBytes;
  const uint64_t mHeapAlignmentUnits;  // of DX12HeapWrapper::kPlacementAlignment bytes
  const ComPtr<ID3D12Device> mDevice;
};

}  // namespace kivml::gpu
