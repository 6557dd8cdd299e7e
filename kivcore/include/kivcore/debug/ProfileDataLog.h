#pragma once
// Timing statistics of one profiled code region: call count and total, shortest and longest time in
// nanoseconds. Samples are added with atomics from any thread; a reader racing a Reset() may see a mix of
// old and new fields. Held through boost::intrusive_ptr (the count lives in the object); made by
// CodeProfilerManager::CreateNewProfileDataLog, which keeps every log for its summary.

#include <atomic>
#include <cstdint>
#include <string>

#include <boost/intrusive_ptr.hpp>

#include "kivcore/kivcore_export.h"

namespace kivcore::debug {

class KIVCORE_EXPORT ProfileDataLog {
 public:
  ProfileDataLog(std::string name, int volume);
  ProfileDataLog(const ProfileDataLog&) = delete;
  ProfileDataLog& operator=(const ProfileDataLog&) = delete;
  ~ProfileDataLog();

  const std::string& Name() const noexcept { return mName; }
  // How chatty the region is: CodeProfilerManager::IsVolumeProfiled decides whether it is timed.
  int Volume() const noexcept { return mVolume; }

  void AddSample(uint64_t nanoseconds) noexcept;
  void Reset() noexcept;

  uint64_t CallCount() const noexcept { return mCalls.load(std::memory_order_relaxed); }
  uint64_t TotalNanoseconds() const noexcept { return mTotal.load(std::memory_order_relaxed); }
  // 0 while there are no samples.
  uint64_t MinNanoseconds() const noexcept;
  uint64_t MaxNanoseconds() const noexcept { return mMax.load(std::memory_order_relaxed); }

  friend KIVCORE_EXPORT void intrusive_ptr_add_ref(const ProfileDataLog* log) noexcept;
  friend KIVCORE_EXPORT void intrusive_ptr_release(const ProfileDataLog* log) noexcept;

 private:
  static constexpr uint64_t kNoMinimum = ~uint64_t{0};

  const std::string mName;
  const int mVolume;
  mutable std::atomic<int> mReferences{0};
  std::atomic<uint64_t> mCalls{0};
  std::atomic<uint64_t> mTotal{0};
  std::atomic<uint64_t> mMin{kNoMinimum};
  std::atomic<uint64_t> mMax{0};
};

KIVCORE_EXPORT void intrusive_ptr_add_ref(const ProfileDataLog* log) noexcept;
KIVCORE_EXPORT void intrusive_ptr_release(const ProfileDataLog* log) noexcept;

}  // namespace kivcore::debug
