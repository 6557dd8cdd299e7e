#include "kivcore/threads/RecursiveMutex.h"

#include <sstream>
#include <string>

#include "kivcore/logging/Logging.h"
#include "kivcore/threads/LockTimeoutException.h"

namespace kivcore::threads {

namespace {

const char* SiteOrUnknown(const char* where) {
  return where == nullptr ? "unknown site" : where;
}

}  // namespace

RecursiveMutex::RecursiveMutex(const char* name) : mName(name == nullptr ? "unnamed" : name) {}

RecursiveMutex::~RecursiveMutex() = default;

void RecursiveMutex::Acquire(std::thread::id self, const char* where) const {
  mOwner = self;
  mDepth = 1;
  mOwnerWhere = where;
}

void RecursiveMutex::Lock(const char* where, const std::chrono::milliseconds& timeout) const {
  const std::thread::id self = std::this_thread::get_id();
  std::unique_lock lock(mMutex);
  if (mDepth == 0) {
    Acquire(self, where);
    return;
  }
  if (mOwner == self) {
    ++mDepth;
    return;
  }
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  ++mWaiters;
  const bool acquired = mReleased.wait_until(lock, deadline, [this] { return mDepth == 0; });
  --mWaiters;
  if (acquired) {
    Acquire(self, where);
    return;
  }
  std::ostringstream message;
  message << "Lock time-out: mutex '" << mName << "' waited for at '" << SiteOrUnknown(where) << "' for "
          << timeout.count() << " ms; held at '" << SiteOrUnknown(mOwnerWhere) << "' by thread " << mOwner;
  lock.unlock();
  const std::string text = message.str();
  try {
    logging::LogMessage(text);
  } catch (...) {
    // The exception below still reports the time-out.
  }
  throw LockTimeoutException(text);
}

void RecursiveMutex::Unlock() const {
  const std::thread::id self = std::this_thread::get_id();
  std::lock_guard lock(mMutex);
  if (mDepth == 0 || mOwner != self) {
    return;
  }
  if (--mDepth != 0) {
    return;
  }
  mOwner = std::thread::id();
  mOwnerWhere = nullptr;
  // Signalled under the lock: the next owner may destroy this mutex as soon as it gets it.
  if (mWaiters > 0) {
    mReleased.notify_one();
  }
}

bool RecursiveMutex::TryLock(const char* where) const {
  const std::thread::id self = std::this_thread::get_id();
  std::lock_guard lock(mMutex);
  if (mDepth == 0) {
    Acquire(self, where);
    return true;
  }
  if (mOwner == self) {
    ++mDepth;
    return true;
  }
  return false;
}

bool RecursiveMutex::IsLockedByCurrentThread() const {
  const std::thread::id self = std::this_thread::get_id();
  std::lock_guard lock(mMutex);
  return mDepth != 0 && mOwner == self;
}

}  // namespace kivcore::threads
