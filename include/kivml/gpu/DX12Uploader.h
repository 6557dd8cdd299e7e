#pragma once
// An uploader into Direct3D 12 buffers placed in heaps leased from an upload pool. Held by std::shared_ptr:
// queued uploads hold it weakly.

#include <memory>

#include "kivcore/async/AsyncExecutor.h"
#include "kivml/gpu/BufferUploader.h"
#include "kivml/gpu/D3D12.h"
#include "kivml/gpu/DX12UploadHeapRecycler.h"
#include "kivml/kivml_export.h"

namespace kivml::gpu {

class KIVML_EXPORT DX12Uploader : public BufferUploader, public std::enable_shared_from_this<DX12Uploader> {
 public:
  DX12Uploader(std::shared_ptr<kivcore::async::AsyncExecutor> parentExecutor,
               std::shared_ptr<DX12UploadHeapRecycler> recycler, ComPtr<ID3D12Device> device);
  ~DX12Uploader() override;

 protected:
  const std::shared_ptr<DX12UploadHeapRecycler> mRecycler;
  const ComPtr<ID3D12Device> mDevice;
};

}  // namespace kivml::gpu
