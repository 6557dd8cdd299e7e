#pragma once
// A gate that threads pass through while it is open and wait at while it is closed.
// - Open releases every thread waiting at that moment, even when Close follows at once; Close makes
//   later waits block again.
// - A wait lasts at most until its deadline (steady clock): no caller waits longer than it asked.
// - Open, Close and the waits may be called from any thread; the gate must outlive its waiters.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "kivcore/kivcore_export.h"

namespace kivcore::threads {

class KIVCORE_EXPORT Gate {
 public:
  explicit Gate(bool open);
  Gate(const Gate&) = delete;
  Gate& operator=(const Gate&) = delete;
  ~Gate();

  void Open();
  void Close();
  bool IsOpen() const noexcept { return mOpen.load(std::memory_order_acquire); }

  // True when the gate was open, or opened before the deadline; false on time-out.
  bool PassThroughUntil(const std::chrono::steady_clock::time_point& deadline) const;

  template <class Rep, class Period>
  bool PassThroughFor(const std::chrono::duration<Rep, Period>& timeout) const {
    return PassThroughUntil(std::chrono::steady_clock::now() +
                            std::chrono::duration_cast<std::chrono::steady_clock::duration>(timeout));
  }

 private:
  mutable std::mutex mMutex;
  mutable std::condition_variable mOpened;
  std::atomic<bool> mOpen;      // written under mMutex, so that a waiter cannot miss an Open; read without it
  std::uint64_t mOpenings = 0;  // guarded by mMutex: counts closed-to-open changes, for Open-then-Close
};

}  // namespace kivcore::threads
