#pragma once
// A byte buffer drawn from the MemoryRecycler, always held by std::shared_ptr. Its contents are not
// initialised. AttachToExternalBuffer turns it into a view of memory that another owner keeps alive
// (used to read tensors out of a larger image without copying).

#include <cstddef>
#include <memory>

#include "kivcore/allocator/STLAllocator.h"
#include "kivcore/kivcore_export.h"

namespace kivcore::allocator {

class KIVCORE_EXPORT RecycledMemory : public Allocated<RecycledMemory> {
 public:
  explicit RecycledMemory(size_t bytes);
  ~RecycledMemory();
  RecycledMemory(const RecycledMemory&) = delete;
  RecycledMemory& operator=(const RecycledMemory&) = delete;

  static std::shared_ptr<RecycledMemory> Create(size_t bytes);

  // Releases the owned block (if any) and makes this object a view of `bytes` bytes at `data`, which
  // `owner` keeps alive for as long as this object lives.
  void AttachToExternalBuffer(std::shared_ptr<const void> owner, char* data, size_t bytes);

  char* Buffer() noexcept { return mData; }
  const char* Buffer() const noexcept { return mData; }
  size_t Size() const noexcept { return mSize; }
  bool IsAttached() const noexcept { return mOwner != nullptr; }

 private:
  void ReleaseOwnedBlock() noexcept;

  char* mData = nullptr;
  size_t mSize = 0;
  bool mOwnsBlock = false;
  std::shared_ptr<const void> mOwner;  // set only while attached to an external buffer
};

}  // namespace kivcore::allocator
