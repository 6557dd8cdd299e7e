#pragma once
// Holds a RecursiveMutex for a scope: locks on construction (throwing LockTimeoutException when the wait
// runs out, in which case nothing is held) and unlocks on destruction, unless Unlock came first. Used on
// the thread that constructed it; the mutex must outlive it.

#include <chrono>

#include "kivcore/kivcore_export.h"
#include "kivcore/threads/RecursiveMutex.h"
#include "kivcore/threads/ThreadSafetyAnnotations.h"

namespace kivcore::threads {

class KIVCORE_EXPORT KIV_SCOPED_CAPABILITY ScopedLock {
 public:
  ScopedLock(const RecursiveMutex& mutex, const char* where,
             std::chrono::milliseconds timeout = kDefaultLockTimeout) KIV_ACQUIRE(mutex);
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;
  ~ScopedLock() KIV_RELEASE();

  // Releases early; later calls and the destructor then do nothing.
  void Unlock() KIV_RELEASE();

 private:
  const RecursiveMutex* mMutex;  // null once unlocked
};

}  // namespace kivcore::threads
