#pragma once
// A single-use count-down latch, as std::latch, over a mutex and a condition variable. std::latch and
// std::barrier wait through libstdc++'s atomic waits, which in GCC 12 can miss a wake-up on platforms
// without futexes (MinGW) and leave a thread waiting for ever.

#include <condition_variable>
#include <cstddef>
#include <mutex>

namespace kivcore::threads {

class Latch {
 public:
  explicit Latch(std::ptrdiff_t count) : mCount(count) {}
  Latch(const Latch&) = delete;
  Latch& operator=(const Latch&) = delete;

  void CountDown(std::ptrdiff_t n = 1) {
    const std::lock_guard lock(mMutex);
    mCount -= n;
    if (mCount <= 0) {
      mReleased.notify_all();
    }
  }

  void Wait() const {
    std::unique_lock lock(mMutex);
    mReleased.wait(lock, [this] { return mCount <= 0; });
  }

  void ArriveAndWait(std::ptrdiff_t n = 1) {
    CountDown(n);
    Wait();
  }

 private:
  mutable std::mutex mMutex;
  mutable std::condition_variable mReleased;
  std::ptrdiff_t mCount;  // guarded by mMutex
};

}  // namespace kivcore::threads
