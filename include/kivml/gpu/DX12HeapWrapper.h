#pragma once
// An explicitly created Direct3D 12 heap that buffers are placed in one after another, always held by
// std::shared_ptr (Create). Placement only moves forward: the space of a released resource is not reused,
// and the heap's memory comes back only when the heap itself goes. Each resource holds its heap, so the
// heap outlives everything placed in it. Thread-safe.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "kivcore/allocator/STLAllocator.h"
#include "kivml/gpu/D3D12.h"
#include "kivml/gpu/DX12ResourceWrapper.h"
#include "kivml/kivml_export.h"

namespace kivml::gpu {

class KIVML_EXPORT DX12HeapWrapper : public std::enable_shared_from_this<DX12HeapWrapper> {
 public:
  // Placements start at multiples of this, the alignment of buffers.
  static constexpr uint64_t kPlacementAlignment = 65536;

  // Takes both references; `heap` must not be null. Use Create: resources can only be placed in a heap
  // that a std::shared_ptr owns.
  DX12HeapWrapper(ComPtr<ID3D12Heap> heap, ComPtr<ID3D12Device> device);
  virtual ~DX12HeapWrapper();
  DX12HeapWrapper(const DX12HeapWrapper&) = delete;
  DX12HeapWrapper& operator=(const DX12HeapWrapper&) = delete;

  // A new heap on `device`. Throws kiv_exception("CreateHeap failed.", result) when the device refuses.
  static std::shared_ptr<DX12HeapWrapper> Create(const D3D12_HEAP_DESC& heapDesc,
                                                 ComPtr<ID3D12Device> device);

  // A buffer of `sizeInBytes` bytes in generic-read state, placed at the next free offset, which then moves
  // on by the size rounded up to kPlacementAlignment. Throws kiv_exception("CreatePlacedResource failed.",
  // result) when the buffer cannot be placed (it does not fit, among others), leaving the offset as it
  // was; std::bad_weak_ptr when no std::shared_ptr owns this heap.
  virtual std::shared_ptr<DX12ResourceWrapper> CreateResource(size_t sizeInBytes);

  // The same, with the resource holding `holder` instead of this heap's own pointer: a pointer to this
  // heap that shares ownership with something else, such as a pool's lease, which then lasts as long as
  // the resource.
  std::shared_ptr<DX12ResourceWrapper> CreateResourceHeldBy(size_t sizeInBytes,
                                                            std::shared_ptr<DX12HeapWrapper> holder);

  // A new reference to the heap (null if there is none).
  virtual ComPtr<ID3D12Heap> GetHeap();

  // Where the next buffer would be placed.
  uint64_t GetNextOffset();

 private:
  ComPtr<ID3D12Heap> mHeap;
  ComPtr<ID3D12Device> mDevice;
  std::mutex mMutex;  // serialises placement
  // Guarded by mMutex.
  uint64_t mNextOffset = 0;
  [[maybe_unused]] uint64_t mReserved = 1;  // layout only: nothing reads it
  std::vector<std::weak_ptr<DX12ResourceWrapper>,
              kivcore::allocator::STLAllocator<std::weak_ptr<DX12ResourceWrapper>>>
      mResources;  // every resource placed, oldest first
};

}  // namespace kivml::gpu
