#pragma once
// The lease on one pooled buffer. Users never see it: Create hands out a std::shared_ptr to the buffer's
// element that shares ownership with the lease, so that when its last copy goes, the lease gives the buffer
// back to its pool, or simply releases it when the pool has gone (or there is none).
// Threads: the lease ends on whichever thread drops the last copy; giving the buffer back only posts a task
// on the pool's queue.

#include <exception>
#include <memory>
#include <utility>

#include "kivcore/allocator/STLAllocator.h"
#include "kivcore/logging/Logging.h"

namespace kivml::gpu {

template <class T>
class BufferRecycler;

template <class T>
class RecycledBuffer {
  // Only Create makes leases, so that every one of them is held by std::shared_ptr.
  struct ConstructionKey {
    explicit ConstructionKey() = default;
  };

 public:
  using Element = typename T::element_type;

  // An empty pointer when `buffer` is null.
  static std::shared_ptr<Element> Create(std::weak_ptr<BufferRecycler<T>> pool, T buffer) {
    if (!buffer) {
      return nullptr;
    }
    Element* const element = buffer.get();
    auto lease = std::allocate_shared<RecycledBuffer>(kivcore::allocator::STLAllocator<RecycledBuffer>(),
                                                      ConstructionKey(), std::move(pool), std::move(buffer));
    return std::shared_ptr<Element>(std::move(lease), element);
  }

  RecycledBuffer(ConstructionKey, std::weak_ptr<BufferRecycler<T>> pool, T buffer) noexcept
      : mPool(std::move(pool)), mBuffer(std::move(buffer)) {}
  ~RecycledBuffer() {
    const std::shared_ptr<BufferRecycler<T>> pool = mPool.lock();
    if (pool == nullptr) {
      return;
    }
    try {
      pool->RecycleBuffer(std::move(mBuffer));
    } catch (...) {
      // The buffer is released instead; a lease may end in any destructor, so this must not throw.
      try {
        kivcore::logging::LogException(std::current_exception(), "kivml::gpu::RecycledBuffer", nullptr);
      } catch (...) {
        // Nothing is left to report to.
      }
    }
  }
  RecycledBuffer(const RecycledBuffer&) = delete;
  RecycledBuffer& operator=(const RecycledBuffer&) = delete;

 private:
  std::weak_ptr<BufferRecycler<T>> mPool;
  T mBuffer;
};

}  // namespace kivml::gpu

// The destructor gives buffers back through the pool, which itself makes leases.
#include "kivml/gpu/BufferRecycler.h"
