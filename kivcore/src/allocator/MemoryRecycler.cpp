#include "kivcore/allocator/MemoryRecycler.h"

#include <algorithm>
#include <array>
#include <bit>
#include <mutex>
#include <new>
#include <vector>

namespace kivcore::allocator {
namespace {

// GCC defines __SANITIZE_ADDRESS__; clang says so only through __has_feature.
#if defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KIVCORE_ADDRESS_SANITIZER 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(KIVCORE_ADDRESS_SANITIZER)
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

void* SystemAllocate(size_t bytes) {
  return ::operator new (bytes, std::align_val_t{AlignmentFor(bytes)});
}
void SystemFree(void* p, size_t bytes) noexcept {
  ::operator delete (p, bytes, std::align_val_t{AlignmentFor(bytes)});
}

struct SizeClass {
  std::mutex mutex;
  std::vector<void*> kept;  // guarded by mutex
};

struct Pool {
  std::array<SizeClass, kClassCount> classes;
};

// Never destroyed: blocks may be recycled by other static destructors after this one would have run.
Pool& GetPool() {
  static Pool* pool = new Pool();
  return *pool;
}

bool KeepInPool(Pool& pool, size_t index, void* p) noexcept {
  const size_t classBytes = ClassBytes(index);
  SizeClass& sizeClass = pool.classes[index];
  std::lock_guard lock(sizeClass.mutex);
  const size_t limit = std::max<size_t>(4, std::min(kMaxKeptBlocksPerClass, kKeptBytesPerClass / classBytes));
  if (sizeClass.kept.size() >= limit) {
    return false;
  }
  try {
    sizeClass.kept.push_back(p);
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

// A few blocks of each small class per thread, so that the steady allocate/free churn of one thread
// takes no lock. Emptied into the pool when the thread ends.
// Not with MinGW: its emulated thread-local storage can free a thread's variables before their
// destructors run, and the cache's destructor then reads freed memory.
#if defined(__MINGW32__)
constexpr bool kThreadCacheEnabled = false;
#else
constexpr bool kThreadCacheEnabled = true;
#endif
constexpr size_t kThreadCachedClasses = ClassIndex(16 * 1024) + 1;
constexpr size_t kThreadCacheDepth = 8;

struct ThreadCache {
  std::array<std::array<void*, kThreadCacheDepth>, kThreadCachedClasses> blocks{};
  std::array<uint8_t, kThreadCachedClasses> counts{};

  ~ThreadCache() {
    Pool& pool = GetPool();
    for (size_t index = 0; index < kThreadCachedClasses; ++index) {
      for (size_t i = 0; i < counts[index]; ++i) {
        if (!KeepInPool(pool, index, blocks[index][i])) {
          SystemFree(blocks[index][i], ClassBytes(index));
        }
      }
    }
  }
};

thread_local ThreadCache tThreadCache;

}  // namespace

void* MemoryRecycler::Allocate(size_t bytes, size_t& actualBytes) {
  if (!kPoolEnabled || bytes > kMaxClassBytes) {
    actualBytes = bytes;
    return SystemAllocate(bytes == 0 ? 1 : bytes);
  }
  const size_t index = ClassIndex(bytes);
  const size_t classBytes = ClassBytes(index);
  actualBytes = classBytes;
  if (kThreadCacheEnabled && index < kThreadCachedClasses) {
    ThreadCache& cache = tThreadCache;
    if (cache.counts[index] > 0) {
      return cache.blocks[index][--cache.counts[index]];
    }
  }
  Pool& pool = GetPool();
  SizeClass& sizeClass = pool.classes[index];
  {
    std::lock_guard lock(sizeClass.mutex);
    if (!sizeClass.kept.empty()) {
      void* p = sizeClass.kept.back();
      sizeClass.kept.pop_back();
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
  const size_t index = ClassIndex(bytes);
  if (kThreadCacheEnabled && index < kThreadCachedClasses) {
    ThreadCache& cache = tThreadCache;
    if (cache.counts[index] < kThreadCacheDepth) {
      cache.blocks[index][cache.counts[index]++] = p;
      return;
    }
  }
  if (!KeepInPool(GetPool(), index, p)) {
    SystemFree(p, ClassBytes(index));
  }
}

}  // namespace kivcore::allocator
