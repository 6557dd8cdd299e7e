#include "kivcore/allocator/MemoryRecycler.h"

#include <array>
#include <atomic>
#include <bit>
#include <mutex>
#include <new>
#include <vector>

namespace kivcore::allocator {
namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kPoolEnabled = false;  // keep every block visible to AddressSanitizer
#else
constexpr bool kPoolEnabled = true;
#endif

// Size classes: four steps per power of two (at most 25% waste), from 16 bytes to 64 MiB.
// Larger requests go straight to the system.
constexpr size_t kMinClassBytes = 16;
constexpr size_t kMaxClassBytes = size_t{64} << 20;
constexpr size_t kKeptBytesPerClass = size_t{64} << 20;
constexpr size_t kMaxKeptBlocksPerClass = 1024;

constexpr size_t ClassIndex(size_t bytes) {
  if (bytes <= kMinClassBytes) {
    return 0;
  }
  const size_t v = bytes - 1;
  const unsigned k = static_cast<unsigned>(std::bit_width(v)) - 1;  // 2^k <= v < 2^(k+1), k >= 4
  const size_t step = (v >> (k - 2)) & 3;
  return (k - 4) * 4 + step + 1;
}

constexpr size_t ClassBytes(size_t index) {
  if (index == 0) {
    return kMinClassBytes;
  }
  const size_t k = (index - 1) / 4 + 4;
  const size_t step = (index - 1) % 4;
  return (4 + step + 1) << (k - 2);
}

constexpr size_t kClassCount = ClassIndex(kMaxClassBytes) + 1;
static_assert(ClassBytes(ClassIndex(17)) >= 17 && ClassBytes(ClassIndex(kMaxClassBytes)) == kMaxClassBytes);

size_t AlignmentFor(size_t bytes) {
  return bytes >= MemoryRecycler::kLargeAlignment ? MemoryRecycler::kLargeAlignment
                                                  : MemoryRecycler::kSmallAlignment;
}

void* SystemAllocate(size_t bytes) { return ::operator new(bytes, std::align_val_t{AlignmentFor(bytes)}); }
void SystemFree(void* p, size_t bytes) noexcept {
  ::operator delete(p, bytes, std::align_val_t{AlignmentFor(bytes)});
}

struct SizeClass {
  std::mutex mutex;
  std::vector<void*> kept;  // guarded by mutex
};

struct Pool {
  std::array<SizeClass, kClassCount> classes;
  std::atomic<uint64_t> allocations{0};
  std::atomic<uint64_t> reuses{0};
  std::atomic<uint64_t> keptBytes{0};
};

// Never destroyed: blocks may be recycled by other static destructors after this one would have run.
Pool& GetPool() {
  static Pool* pool = new Pool();
  return *pool;
}

}  // namespace

void* MemoryRecycler::Allocate(size_t bytes, size_t& actualBytes) {
  Pool& pool = GetPool();
  pool.allocations.fetch_add(1, std::memory_order_relaxed);
  if (!kPoolEnabled || bytes > kMaxClassBytes) {
    actualBytes = bytes;
    return SystemAllocate(bytes == 0 ? 1 : bytes);
  }
  const size_t index = ClassIndex(bytes);
  const size_t classBytes = ClassBytes(index);
  actualBytes = classBytes;
  SizeClass& sizeClass = pool.classes[index];
  {
    std::lock_guard lock(sizeClass.mutex);
    if (!sizeClass.kept.empty()) {
      void* p = sizeClass.kept.back();
      sizeClass.kept.pop_back();
      pool.reuses.fetch_add(1, std::memory_order_relaxed);
      pool.keptBytes.fetch_sub(classBytes, std::memory_order_relaxed);
      return p;
    }
  }
  return SystemAllocate(classBytes);
}

void MemoryRecycler::Recycle(void* p, size_t bytes) noexcept {
  if (p == nullptr) {
    return;
  }
  if (!kPoolEnabled || bytes > kMaxClassBytes) {
    SystemFree(p, bytes == 0 ? 1 : bytes);
    return;
  }
  Pool& pool = GetPool();
  const size_t index = ClassIndex(bytes);
  const size_t classBytes = ClassBytes(index);
  SizeClass& sizeClass = pool.classes[index];
  {
    std::lock_guard lock(sizeClass.mutex);
    const size_t limit = std::max<size_t>(4, std::min(kMaxKeptBlocksPerClass, kKeptBytesPerClass / classBytes));
    if (sizeClass.kept.size() < limit) {
      try {
        sizeClass.kept.push_back(p);
        pool.keptBytes.fetch_add(classBytes, std::memory_order_relaxed);
        return;
      } catch (const std::bad_alloc&) {
        // fall through: free it instead of keeping it
      }
    }
  }
  SystemFree(p, classBytes);
}

void MemoryRecycler::Trim() noexcept {
  Pool& pool = GetPool();
  for (size_t index = 0; index < kClassCount; ++index) {
    std::vector<void*> blocks;
    {
      std::lock_guard lock(pool.classes[index].mutex);
      blocks.swap(pool.classes[index].kept);
    }
    for (void* p : blocks) {
      SystemFree(p, ClassBytes(index));
    }
    pool.keptBytes.fetch_sub(blocks.size() * ClassBytes(index), std::memory_order_relaxed);
  }
}

MemoryRecycler::Statistics MemoryRecycler::GetStatistics() noexcept {
  const Pool& pool = GetPool();
  return {pool.allocations.load(std::memory_order_relaxed), pool.reuses.load(std::memory_order_relaxed),
          pool.keptBytes.load(std::memory_order_relaxed)};
}

}  // namespace kivcore::allocator
