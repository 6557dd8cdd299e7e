#pragma once
// Process-wide pool of memory blocks by size class. Freed blocks are kept for reuse (bounded per class,
// with a few small blocks per thread that need no lock) so that the request path, which allocates and
// frees the same sizes over and over, rarely reaches the system allocator. Thread-safe. Blocks of 64 bytes or
// more are 64-byte aligned, smaller ones 16-byte.
//
// Recycle must be given the size that was requested from Allocate (not the actual size), so that both
// map to the same class. Builds with AddressSanitizer bypass the pool so use-after-free stays visible.

#include <cstddef>
#include <cstdint>

#include "kivcore/kivcore_export.h"

namespace kivcore::allocator {

class KIVCORE_EXPORT MemoryRecycler {
 public:
  // Returns a block of at least `bytes` bytes (never null; throws std::bad_alloc). `actualBytes` receives
  // the usable size of the block.
  static void* Allocate(size_t bytes, size_t& actualBytes);
  static void Recycle(void* p, size_t bytes) noexcept;

  static constexpr size_t kLargeAlignment = 64;
  static constexpr size_t kSmallAlignment = 16;
};

}  // namespace kivcore::allocator
