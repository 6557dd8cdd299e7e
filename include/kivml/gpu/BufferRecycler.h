#pragma once
// A pool of buffers that are too costly to make per request (GPU heaps...), leased out asynchronously. T is
// a std::shared_ptr<X>; a lease is a plain std::shared_ptr<X> whose last copy gives the buffer back (see
// RecycledBuffer). Subclasses make the buffers (CreateBuffer) and may reset them on the way in and out.
//
// Size: Initialize makes `bufferCount` buffers. While all of them are leased, GetBuffer makes more, up to
// twice the count (no ceiling for a count of 0); past that, requests wait, first come first served, for a
// lease to end. A buffer that comes back while the free stack already holds the count is destroyed, so the
// pool settles back to its count after a burst. Free buffers are reused most recently returned first.
//
// Threads: Initialize runs on the caller's thread, before the pool is shared. After that every change of
// pool state runs as a task on a serial queue over the parent executor, so the pool takes no lock and
// CreateBuffer and the hooks run there, one at a time. GetBuffer may be called from any thread.
//
// Lifetime: held by std::shared_ptr; tasks and leases hold it weakly. Leases that outlive the pool release
// their buffers themselves. Requests still waiting when the pool goes are never served: their futures fail
// with BrokenPromiseException. A request that the queue refuses or drops unrun (parent executor shut down)
// fails with ExecutorIsTerminatedException.

#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <memory>
#include <utility>
#include <vector>

#include "kivcore/allocator/STLAllocator.h"
#include "kivcore/async/AsyncExecutor.h"
#include "kivcore/async/ExecutorIsTerminatedException.h"
#include "kivcore/async/Future.h"
#include "kivcore/async/Promise.h"
#include "kivcore/config/ResultCodes.h"
#include "kivcore/config/kiv_exception.h"
#include "kivcore/threads/AsyncThreadedSubExecutor.h"
#include "kivml/gpu/RecycledBuffer.h"

namespace kivml::gpu {

template <class T>
class BufferRecycler : public std::enable_shared_from_this<BufferRecycler<T>> {
 public:
  using Element = typename T::element_type;
  using Lease = std::shared_ptr<Element>;

  // Throws kiv_exception(eInvalidArgument) for a null parent.
  BufferRecycler(std::shared_ptr<kivcore::async::AsyncExecutor> parentExecutor, size_t bufferCount)
      : mParentExecutor(std::move(parentExecutor)),
        mSerialQueue(kivcore::threads::CreateSubExecutor(mParentExecutor, 1)),
        mBufferCount(bufferCount) {}
  virtual ~BufferRecycler() = default;
  BufferRecycler(const BufferRecycler&) = delete;
  BufferRecycler& operator=(const BufferRecycler&) = delete;

  // Makes the configured number of buffers and returns how many the pool holds. Throws
  // kiv_exception(eBadAllocException) as soon as CreateBuffer fails to make one.
  virtual size_t Initialize() {
    mFreeBuffers.reserve(mBufferCount);
    for (uint64_t i = 0; i < mBufferCount; ++i) {
      T buffer = CreateBuffer();
      if (!buffer) {
        throw kivcore::kiv_exception("kivml::gpu::BufferRecycler::Initialize: no buffer could be made",
                                     kivcore::config::eBadAllocException);
      }
      mFreeBuffers.push_back(std::move(buffer));
    }
    mCreatedCount = mFreeBuffers.size();
    return mFreeBuffers.size();
  }

  // A lease on a buffer, once one is free. The future's state holds a copy of the lease too: Take it, or
  // drop the future, for the lease to end with the caller's last copy. Fails with
  // kiv_exception(eBadAllocException) when the pool has no buffer at all and CreateBuffer makes none. Throws
  // std::bad_weak_ptr when the pool is not (or no longer) held by a std::shared_ptr.
  virtual kivcore::async::Future<Lease> GetBuffer() {
    auto request = std::allocate_shared<Request>(kivcore::allocator::STLAllocator<Request>(),
                                                 kivcore::async::GetDefaultExecutor());
    kivcore::async::Future<Lease> future = request->GetFuture();
    // Refused, the task is destroyed unrun inside Post and has failed the request already.
    mSerialQueue->Post(RequestTask(WeakSelf(), std::move(request)), 0);
    return future;
  }

 protected:
  using Request = kivcore::async::Promise<Lease>;
  using Waiters =
      std::deque<std::shared_ptr<Request>, kivcore::allocator::STLAllocator<std::shared_ptr<Request>>>;
  using FreeBuffers = std::vector<T, kivcore::allocator::STLAllocator<T>>;

  // A new buffer, or null when none can be made.
  virtual T CreateBuffer() = 0;
  // Called on a buffer as it goes onto the free stack, and as it leaves it for a lease.
  virtual void PrepareBufferForRecycling(T& /*buffer*/) {}
  virtual void PrepareBufferForUse(T& /*buffer*/) {}

  // Declared here so that it keeps its slot after the hooks.
 public:
  // Takes back a buffer, as a lease does when it ends. Throws std::bad_weak_ptr when the pool is not (or
  // no longer) held by a std::shared_ptr.
  virtual void RecycleBuffer(T buffer) {
    mSerialQueue->Post(
        [weakSelf = WeakSelf(), buffer = std::move(buffer)]() mutable {
          if (const std::shared_ptr<BufferRecycler> self = weakSelf.lock()) {
            self->TakeBack(std::move(buffer));
          }
        },
        0);
  }

 protected:
  const std::shared_ptr<kivcore::async::AsyncExecutor> mParentExecutor;
  const std::shared_ptr<kivcore::threads::AsyncThreadedSubExecutor> mSerialQueue;
  const uint64_t mBufferCount;
  // From here on, touched only by Initialize and then by tasks on mSerialQueue.
  Waiters mWaiters;            // requests that found the pool exhausted, oldest first
  FreeBuffers mFreeBuffers;    // a stack: the most recently returned buffer is on top
  uint64_t mCreatedCount = 0;  // pooled buffers in existence, free or leased

 private:
  friend class RecycledBuffer<T>;

  // A queued GetBuffer. Executors move their tasks, so only the copy that runs or is dropped holds the
  // request; dropped unrun, it fails the request rather than leaving it broken.
  class RequestTask {
   public:
    RequestTask(std::weak_ptr<BufferRecycler> pool, std::shared_ptr<Request> request) noexcept
        : mPool(std::move(pool)), mRequest(std::move(request)) {}
    RequestTask(const RequestTask&) = default;
    RequestTask(RequestTask&&) noexcept = default;
    RequestTask& operator=(const RequestTask&) = delete;
    RequestTask& operator=(RequestTask&&) = delete;
    ~RequestTask() {
      if (mRequest != nullptr && !mRequest->IsAbandoned()) {
        mRequest->SetException(kivcore::async::ExecutorIsTerminatedException());
      }
    }

    void operator()() {
      const std::shared_ptr<Request> request = std::move(mRequest);
      if (const std::shared_ptr<BufferRecycler> pool = mPool.lock()) {
        pool->Serve(request);
      }
    }

   private:
    std::weak_ptr<BufferRecycler> mPool;
    std::shared_ptr<Request> mRequest;  // null once run
  };

  std::weak_ptr<BufferRecycler> WeakSelf() {
    std::weak_ptr<BufferRecycler> self = this->weak_from_this();
    if (self.expired()) {
      throw std::bad_weak_ptr();
    }
    return self;
  }

  Lease MakeLease(T buffer) { return RecycledBuffer<T>::Create(this->weak_from_this(), std::move(buffer)); }

  void Serve(const std::shared_ptr<Request>& request) {
    try {
      ServeOrQueue(request);
    } catch (...) {
      request->SetException(std::current_exception());
    }
  }

  void ServeOrQueue(const std::shared_ptr<Request>& request) {
    if (request->IsAbandoned()) {
      return;  // nobody would take the buffer
    }
    if (!mFreeBuffers.empty()) {
      // Prepared in place, so that a throwing hook leaves the buffer in the pool.
      PrepareBufferForUse(mFreeBuffers.back());
      T buffer = std::move(mFreeBuffers.back());
      mFreeBuffers.pop_back();
      request->SetValue(MakeLease(std::move(buffer)));
      return;
    }
    if (mBufferCount == 0 || mCreatedCount < 2 * mBufferCount) {
      if (T buffer = CreateBuffer()) {
        ++mCreatedCount;
        request->SetValue(MakeLease(std::move(buffer)));
        return;
      }
      if (mCreatedCount == 0) {
        // No lease will ever end to serve a waiter.
        request->SetException(
            kivcore::kiv_exception("kivml::gpu::BufferRecycler::GetBuffer: no buffer could be made",
                                   kivcore::config::eBadAllocException));
        return;
      }
    }
    mWaiters.push_back(request);
  }

  void TakeBack(T buffer) {
    while (!mWaiters.empty()) {
      const std::shared_ptr<Request> waiter = std::move(mWaiters.front());
      mWaiters.pop_front();
      if (!waiter->IsAbandoned()) {
        // Should the waiter let go meanwhile, the lease ends at once and brings the buffer back here.
        waiter->SetValue(MakeLease(std::move(buffer)));
        return;
      }
    }
    if (mFreeBuffers.size() >= mBufferCount) {
      --mCreatedCount;
      return;  // `buffer` is destroyed
    }
    try {
      PrepareBufferForRecycling(buffer);
    } catch (...) {
      --mCreatedCount;
      throw;
    }
    mFreeBuffers.push_back(std::move(buffer));
  }
};

}  // namespace kivml::gpu
