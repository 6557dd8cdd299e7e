#include "kivml/gpu/DX12DefaultHeapRecycler.h"

namespace kivml::gpu {

DX12DefaultHeapRecycler::~DX12DefaultHeapRecycler() = default;

D3D12_HEAP_DESC DX12DefaultHeapRecycler::GetHeapDesc() const {
  return DescribeHeaps(D3D12_HEAP_TYPE_DEFAULT);
}

}  // namespace kivml::gpu
