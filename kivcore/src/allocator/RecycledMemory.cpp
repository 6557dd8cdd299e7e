#include "kivcore/allocator/RecycledMemory.h"

#include <utility>

namespace kivcore::allocator {

RecycledMemory::RecycledMemory(size_t bytes) : mSize(bytes) {
  if (bytes > 0) {
    size_t actual = 0;
    mData = static_cast<char*>(MemoryRecycler::Allocate(bytes, actual));
    mOwnsBlock = true;
  }
}

RecycledMemory::~RecycledMemory() {
  ReleaseOwnedBlock();
}

std::shared_ptr<RecycledMemory> RecycledMemory::Create(size_t bytes) {
  return std::allocate_shared<RecycledMemory>(STLAllocator<RecycledMemory>(), bytes);
}

void RecycledMemory::AttachToExternalBuffer(std::shared_ptr<const void> owner, char* data, size_t bytes) {
  ReleaseOwnedBlock();
  mOwner = std::move(owner);
  mData = data;
  mSize = bytes;
}

void RecycledMemory::ReleaseOwnedBlock() noexcept {
  if (mOwnsBlock) {
    MemoryRecycler::Recycle(mData, mSize);
    mOwnsBlock = false;
  }
  mData = nullptr;
  mSize = 0;
}

}  // namespace kivcore::allocator
