#include "kivml/gpu/DX12UploadHeapRecycler.h"

namespace kivml::gpu {

DX12UploadHeapRecycler::~DX12UploadHeapRecycler() = default;

D3D12_HEAP_DESC DX12UploadHeapRecycler::GetHeapDesc() const {
  return DescribeHeaps(D3D12_HEAP_TYPE_UPLOAD);
}

}  // namespace kivml::gpu
