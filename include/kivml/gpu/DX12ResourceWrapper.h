#pragma once
// One buffer placed in a DX12HeapWrapper's heap (made by DX12HeapWrapper::CreateResource), always held by
// std::shared_ptr. It keeps its heap alive: a placed resource must not outlive the memory it sits in. The
// copies go through Map, so they work only on heaps the CPU can reach (upload, readback), and they do not
// synchronise with GPU work on the resource: that is the caller's business.

#include <cstddef>
#include <memory>

#include "kivcore/allocator/RecycledMemory.h"
#include "kivml/gpu/D3D12.h"
#include "kivml/kivml_export.h"

namespace kivml::gpu {

class DX12HeapWrapper;

class KIVML_EXPORT DX12ResourceWrapper {
 public:
  DX12ResourceWrapper(ComPtr<ID3D12Resource> resource, std::shared_ptr<DX12HeapWrapper> heap);
  // Releases the resource before the heap it is placed in.
  virtual ~DX12ResourceWrapper();
  DX12ResourceWrapper(const DX12ResourceWrapper&) = delete;
  DX12ResourceWrapper& operator=(const DX12ResourceWrapper&) = delete;

  // A new reference to the resource itself (not a copy of it).
  virtual ComPtr<ID3D12Resource> GetResource();

  // The whole resource (Width x Height x DepthOrArraySize bytes) copied into new CPU memory. Throws
  // kiv_exception with Map's result when the CPU cannot reach the heap.
  virtual std::shared_ptr<kivcore::allocator::RecycledMemory> CopyFromResource();

  // Copies `sizeInBytes` bytes into the start of the resource; the caller keeps them within its width.
  // Throws as CopyFromResource.
  virtual void CopyToResource(const void* data, size_t sizeInBytes);

 private:
  ComPtr<ID3D12Resource> mResource;
  std::shared_ptr<DX12HeapWrapper> mHeap;
};

}  // namespace kivml::gpu
