#include "kivcore/threads/RecursiveMutex.h"

#include <algorithm>
#include <sstream>
#include <string>

#include "kivcore/logging/Logging.h"
#include "kivcore/threads/LockTimeoutException.h"

namespace kivcore::threads {

namespace {

constexpr int kSpinAttempts = 4;
constexpr std::chrono::milliseconds kWaitSlice{100};

const char* SiteOrUnknown(const char* where) {
  return where == nullptr ? "unknown site" : where;
}

}  // namespace

RecursiveMutex::RecursiveMutex(const char* name) : mName(name == nullptr ? "unnamed" : name) {}

RecursiveMutex::~RecursiveMutex() = default;

void RecursiveMutex::Acquired(std::thread::id self, const char* where) const {
  mDepth = 1;
  mOwnerWhere.store(where, std::memory_order_relaxed);
  mOwner.store(self, std::memory_order_relaxed);
}

void RecursiveMutex::Lock(const char* where, const std::chrono::milliseconds& timeout) const {
  const std::thread::id self = std::this_thread::get_id();
  if (mOwner.load(std::memory_order_relaxed) == self) {
    ++mDepth;
    return;
  }
  // Holders keep the lock for a few hundred nanoseconds: a few retries, yielding in between, often save
  // putting this thread to sleep and waking it again.
  for (int attempt = 0; attempt < kSpinAttempts; ++attempt) {
    if (mMutex.try_lock()) {
      Acquired(self, where);
      return;
    }
    std::this_thread::yield();
  }
  if (WaitForMutex(std::chrono::steady_clock::now() + timeout)) {
    Acquired(self, where);
    return;
  }
  std::ostringstream message;
  message << "Lock time-out: mutex '" << mName << "' waited for at '" << SiteOrUnknown(where) << "' for "
          << timeout.count() << " ms; held at '" << SiteOrUnknown(mOwnerWhere.load(std::memory_order_relaxed))
          << "' by thread " << mOwner.load(std::memory_order_relaxed);
  const std::string text = message.str();
  try {
    logging::LogMessage(text);
  } catch (...) {
    // The exception below still reports the time-out.
  }
  throw LockTimeoutException(text);
}

bool RecursiveMutex::WaitForMutex(std::chrono::steady_clock::time_point deadline) const {
  // The timed lock against the system clock is the one every platform and sanitizer knows. Waiting in
  // short slices against the steady deadline keeps a change of the system clock from stretching or cutting
  // the wait by more than one slice.
  for (;;) {
    const auto left = deadline - std::chrono::steady_clock::now();
    if (left <= std::chrono::steady_clock::duration::zero()) {
      return mMutex.try_lock();
    }
    if (mMutex.try_lock_until(std::chrono::system_clock::now() +
                              std::min<std::chrono::steady_clock::duration>(left, kWaitSlice))) {
      return true;
    }
  }
}

void RecursiveMutex::Unlock() const {
  if (mOwner.load(std::memory_order_relaxed) != std::this_thread::get_id()) {
    return;
  }
  if (--mDepth != 0) {
    return;
  }
  mOwner.store(std::thread::id(), std::memory_order_relaxed);
  mOwnerWhere.store(nullptr, std::memory_order_relaxed);
  mMutex.unlock();
}

bool RecursiveMutex::TryLock(const char* where) const {
  const std::thread::id self = std::this_thread::get_id();
  if (mOwner.load(std::memory_order_relaxed) == self) {
    ++mDepth;
    return true;
  }
  if (!mMutex.try_lock()) {
    return false;
  }
  Acquired(self, where);
  return true;
}

bool RecursiveMutex::IsLockedByCurrentThread() const {
  return mOwner.load(std::memory_order_relaxed) == std::this_thread::get_id();
}

}  // namespace kivcore::threads
