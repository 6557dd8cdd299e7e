#include "kivcore/debug/ProfileDataLog.h"

#include <utility>

namespace kivcore::debug {

ProfileDataLog::ProfileDataLog(std::string name, int volume) : mName(std::move(name)), mVolume(volume) {}

ProfileDataLog::~ProfileDataLog() = default;

void ProfileDataLog::AddSample(uint64_t nanoseconds) noexcept {
  mCalls.fetch_add(1, std::memory_order_relaxed);
  mTotal.fetch_add(nanoseconds, std::memory_order_relaxed);
  uint64_t least = mMin.load(std::memory_order_relaxed);
  while (nanoseconds < least && !mMin.compare_exchange_weak(least, nanoseconds, std::memory_order_relaxed)) {
  }
  uint64_t most = mMax.load(std::memory_order_relaxed);
  while (nanoseconds > most && !mMax.compare_exchange_weak(most, nanoseconds, std::memory_order_relaxed)) {
  }
}

void ProfileDataLog::Reset() noexcept {
  mCalls.store(0, std::memory_order_relaxed);
  mTotal.store(0, std::memory_order_relaxed);
  mMin.store(kNoMinimum, std::memory_order_relaxed);
  mMax.store(0, std::memory_order_relaxed);
}

uint64_t ProfileDataLog::MinNanoseconds() const noexcept {
  const uint64_t least = mMin.load(std::memory_order_relaxed);
  return least == kNoMinimum ? 0 : least;
}

void intrusive_ptr_add_ref(const ProfileDataLog* log) noexcept {
  log->mReferences.fetch_add(1, std::memory_order_relaxed);
}

void intrusive_ptr_release(const ProfileDataLog* log) noexcept {
  if (log->mReferences.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    delete log;
  }
}

}  // namespace kivcore::debug
