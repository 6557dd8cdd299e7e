#pragma once
// A re-entrant mutex whose waits are bounded and whose time-outs say who held it.
// - The thread that holds it may lock it again; it is released when Unlock has been called as many times
//   as Lock/TryLock succeeded.
// - Lock waits at most `timeout` (steady clock), then logs and throws LockTimeoutException naming this
//   mutex, the waiting site and the site and thread that hold it (the holder's outermost `where`).
// - Waiters are not served in any particular order.
// - `name` and every `where` must outlive the mutex (string literals, as a rule): only the pointers are
//   kept. The mutex must be unlocked when destroyed.
// - A capability for clang's thread-safety analysis; see ThreadSafetyAnnotations.h for what it cannot tell
//   about re-entrance.

#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>

#include "kivcore/kivcore_export.h"
#include "kivcore/threads/ThreadSafetyAnnotations.h"

namespace kivcore::threads {

inline constexpr std::chrono::milliseconds kDefaultLockTimeout{60000};

class KIVCORE_EXPORT KIV_CAPABILITY("mutex") RecursiveMutex {
 public:
  // A null name is reported as "unnamed".
  explicit RecursiveMutex(const char* name);
  RecursiveMutex(const RecursiveMutex&) = delete;
  RecursiveMutex& operator=(const RecursiveMutex&) = delete;
  ~RecursiveMutex();

  void Lock(const char* where, const std::chrono::milliseconds& timeout) const KIV_ACQUIRE();
  // Does nothing unless the calling thread holds the mutex.
  void Unlock() const KIV_RELEASE();
  // Never waits for the holder: true when the mutex was free or already held by the calling thread.
  bool TryLock(const char* where) const KIV_TRY_ACQUIRE(true);
  bool IsLockedByCurrentThread() const;

 private:
  void Acquired(std::thread::id self, const char* where) const;
  // Takes mMutex, waiting until `deadline` at most.
  bool WaitForMutex(std::chrono::steady_clock::time_point deadline) const;

  const char* const mName;
  // Held by the owner for as long as its depth is above 0. A timed futex-based mutex: an uncontended lock
  // is one atomic operation, and a contended one hands over without a second wait.
  mutable std::timed_mutex mMutex;
  // Written only by the owner while it holds mMutex, so a thread that reads its own id here owns the lock.
  // Others read them only to name the holder in a time-out message.
  mutable std::atomic<std::thread::id> mOwner{};
  mutable std::atomic<const char*> mOwnerWhere{nullptr};  // the holder's outermost site
  mutable unsigned mDepth = 0;                            // touched only by the owner
};

}  // namespace kivcore::threads
