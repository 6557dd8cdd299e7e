#include "kivml/gpu/DX12HeapWrapper.h"

#include <utility>

#include "kivcore/classref/Implements.h"
#include "kivcore/config/ResultCodes.h"
#include "kivcore/config/kiv_exception.h"

namespace kivml::gpu {

DX12HeapWrapper::DX12HeapWrapper(ComPtr<ID3D12Heap> heap, ComPtr<ID3D12Device> device)
    : mHeap(std::move(heap)), mDevice(std::move(device)) {}

DX12HeapWrapper::~DX12HeapWrapper() = default;

std::shared_ptr<DX12HeapWrapper> DX12HeapWrapper::Create(const D3D12_HEAP_DESC& heapDesc,
                                                         ComPtr<ID3D12Device> device) {
  void* heap = nullptr;
  const HRESULT hr = device->CreateHeap(&heapDesc, IID_ID3D12Heap, &heap);
  if (FAILED(hr)) {
    throw kivcore::kiv_exception("CreateHeap failed.", hr);
  }
  return kivcore::classref::CreateObject<DX12HeapWrapper>(AdoptCom(static_cast<ID3D12Heap*>(heap)),
                                                          std::move(device));
}

std::shared_ptr<DX12ResourceWrapper> DX12HeapWrapper::CreateResource(size_t sizeInBytes) {
  // Before placing anything, so that a heap nobody owns loses no space.
  return CreateResourceHeldBy(sizeInBytes, shared_from_this());
}

std::shared_ptr<DX12ResourceWrapper> DX12HeapWrapper::CreateResourceHeldBy(
    size_t sizeInBytes, std::shared_ptr<DX12HeapWrapper> holder) {
  if (holder.get() != this) {
    throw kivcore::kiv_exception(
        "kivml::gpu::DX12HeapWrapper::CreateResourceHeldBy: the holder is not this heap",
        kivcore::config::eInvalidArgument);
  }
  const std::lock_guard<std::mutex> lock(mMutex);
  D3D12_RESOURCE_DESC desc{};
  desc.Dimension = D3D12_RESOURCE_DIMENSION_BUFFER;
  desc.Alignment = 0;
  desc.Width = sizeInBytes;
  desc.Height = 1;
  desc.DepthOrArraySize = 1;
  desc.MipLevels = 1;
  desc.Format = DXGI_FORMAT_UNKNOWN;
  desc.SampleDesc.Count = 1;
  desc.SampleDesc.Quality = 0;
  desc.Layout = D3D12_TEXTURE_LAYOUT_ROW_MAJOR;
  desc.Flags = D3D12_RESOURCE_FLAG_NONE;

  // Direct3D 12 refuses a resource that does not fit in its heap with E_INVALIDARG; vkd3d places it
  // regardless, past the heap's memory.
  const uint64_t heapSize = mHeap->GetDesc().SizeInBytes;
  if (sizeInBytes > heapSize || mNextOffset > heapSize - sizeInBytes) {
    throw kivcore::kiv_exception("CreatePlacedResource failed.", E_INVALIDARG);
  }
  // Buffers start generic-read on every heap type and are never transitioned.
  void* resource = nullptr;
  const HRESULT hr =
      mDevice->CreatePlacedResource(mHeap.get(), mNextOffset, &desc, D3D12_RESOURCE_STATE_GENERIC_READ,
                                    nullptr, IID_ID3D12Resource, &resource);
  if (FAILED(hr)) {
    throw kivcore::kiv_exception("CreatePlacedResource failed.", hr);
  }
  ComPtr<ID3D12Resource> placed = AdoptCom(static_cast<ID3D12Resource*>(resource));
  mNextOffset += (sizeInBytes + (kPlacementAlignment - 1)) & ~(kPlacementAlignment - 1);

  auto wrapper = kivcore::classref::CreateObject<DX12ResourceWrapper>(std::move(placed), std::move(holder));
  mResources.push_back(wrapper);
  return wrapper;
}

ComPtr<ID3D12Heap> DX12HeapWrapper::GetHeap() {
  return mHeap;
}

uint64_t DX12HeapWrapper::GetNextOffset() {
  const std::lock_guard<std::mutex> lock(mMutex);
  return mNextOffset;
}

}  // namespace kivml::gpu
