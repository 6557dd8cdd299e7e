#include "kivcore/threads/ScopedLock.h"

namespace kivcore::threads {

ScopedLock::ScopedLock(const RecursiveMutex& mutex, const char* where, std::chrono::milliseconds timeout)
    : mMutex(&mutex) {
  mutex.Lock(where, timeout);
}

ScopedLock::~ScopedLock() {
  Unlock();
}

void ScopedLock::Unlock() {
  if (mMutex != nullptr) {
    const RecursiveMutex* mutex = mMutex;
    mMutex = nullptr;
    mutex->Unlock();
  }
}

}  // namespace kivcore::threads
