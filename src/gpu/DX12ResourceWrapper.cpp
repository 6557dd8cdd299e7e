#include "kivml/gpu/DX12ResourceWrapper.h"

#include <cstdint>
#include <cstring>
#include <utility>

#include "kivcore/config/kiv_exception.h"
#include "kivml/gpu/DX12HeapWrapper.h"

namespace kivml::gpu {
namespace {

constexpr const char* kMapFailed = "MapResource() error: The CPU cannot access the provided heap.";

// The resource's memory, mapped for the lifetime of the object.
class MappedResource {
 public:
  explicit MappedResource(ID3D12Resource& resource) : mResource(resource) {
    const HRESULT hr = mResource.Map(0, nullptr, &mData);
    if (FAILED(hr)) {
      throw kivcore::kiv_exception(kMapFailed, hr);
    }
  }
  ~MappedResource() { mResource.Unmap(0, nullptr); }
  MappedResource(const MappedResource&) = delete;
  MappedResource& operator=(const MappedResource&) = delete;

  void* Data() const noexcept { return mData; }

 private:
  ID3D12Resource& mResource;
  void* mData = nullptr;
};

}  // namespace

DX12ResourceWrapper::DX12ResourceWrapper(ComPtr<ID3D12Resource> resource,
                                         std::shared_ptr<DX12HeapWrapper> heap)
    : mResource(std::move(resource)), mHeap(std::move(heap)) {}

DX12ResourceWrapper::~DX12ResourceWrapper() {
  // Members would go in reverse order, the heap first; a placed resource must go before its heap.
  mResource.reset();
}

ComPtr<ID3D12Resource> DX12ResourceWrapper::GetResource() {
  return mResource;
}

std::shared_ptr<kivcore::allocator::RecycledMemory> DX12ResourceWrapper::CopyFromResource() {
  const D3D12_RESOURCE_DESC desc = mResource->GetDesc();
  const uint64_t bytes = desc.Width * desc.Height * desc.DepthOrArraySize;
  auto memory = kivcore::allocator::RecycledMemory::Create(bytes);
  const MappedResource mapped(*mResource);
  if (bytes > 0) {
    std::memcpy(memory->Buffer(), mapped.Data(), bytes);
  }
  return memory;
}

void DX12ResourceWrapper::CopyToResource(const void* data, size_t sizeInBytes) {
  const MappedResource mapped(*mResource);
  if (sizeInBytes > 0) {
    std::memcpy(mapped.Data(), data, sizeInBytes);
  }
}

}  // namespace kivml::gpu
