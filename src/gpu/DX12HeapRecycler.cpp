#include "kivml/gpu/DX12HeapRecycler.h"

#include <utility>

namespace kivml::gpu {

DX12HeapRecycler::DX12HeapRecycler(std::shared_ptr<kivcore::async::AsyncExecutor> parentExecutor,
                                   size_t bufferCount, size_t heapBaseBytes, size_t heapAlignmentUnits,
                                   ComPtr<ID3D12Device> device)
    : BufferRecycler(std::move(parentExecutor), bufferCount),
      mHeapBaseBytes(heapBaseBytes),
      mHeapAlignmentUnits(heapAlignmentUnits),
      mDevice(std::move(device)) {}

DX12HeapRecycler::~DX12HeapRecycler() = default;

std::shared_ptr<DX12HeapWrapper> DX12HeapRecycler::CreateBuffer() {
  return DX12HeapWrapper::Create(GetHeapDesc(), mDevice);
}

D3D12_HEAP_DESC DX12HeapRecycler::DescribeHeaps(D3D12_HEAP_TYPE type) const noexcept {
  D3D12_HEAP_DESC desc{};
  // The extra unit per resource leaves room for rounding each placement up to the alignment.
  desc.SizeInBytes = mHeapAlignmentUnits * DX12HeapWrapper::kPlacementAlignment + mHeapBaseBytes;
  desc.Properties.Type = type;
  desc.Properties.CPUPageProperty = D3D12_CPU_PAGE_PROPERTY_UNKNOWN;
  desc.Properties.MemoryPoolPreference = D3D12_MEMORY_POOL_UNKNOWN;
  desc.Properties.CreationNodeMask = 1;
  desc.Properties.VisibleNodeMask = 1;
  desc.Alignment = DX12HeapWrapper::kPlacementAlignment;
  desc.Flags = D3D12_HEAP_FLAG_ALLOW_ONLY_BUFFERS;
  return desc;
}

}  // namespace kivml::gpu
