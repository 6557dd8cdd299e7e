#include "kivml/gpu/DX12Uploader.h"

#include <utility>

namespace kivml::gpu {

DX12Uploader::DX12Uploader(std::shared_ptr<kivcore::async::AsyncExecutor> parentExecutor,
                           std::shared_ptr<DX12UploadHeapRecycler> recycler, ComPtr<ID3D12Device> device)
    : BufferUploader(std::move(parentExecutor)), mRecycler(std::move(recycler)), mDevice(std::move(device)) {}

DX12Uploader::~DX12Uploader() = default;

}  // namespace kivml::gpu
