#pragma once
// Owner of the profiler's logs and settings. Every log it makes is kept for Summary().
//
// Volume says how much gets timed: a log of volume v is timed unless conditional profiling is on and v
// is above the profiling volume. kDefaultVolume (50) is the volume of ordinary regions (ProfileRegion)
// and the default profiling volume; chattier, finer regions use higher volumes. So by default every
// region is timed; with conditional profiling on, a profiling volume below 50 turns ordinary regions off.
//
// Settings from outside come from the DebugDatabase when Get() first runs (so from KIVCORE_DEBUG_FILE or
// KIVCORE_DEBUG_SETTINGS): "kivcore.Profile.Conditional" = 1/true or 0/false, "kivcore.Profile.Volume" =
// an integer. Other values are ignored. All members are safe to call from any thread.

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include <boost/intrusive_ptr.hpp>

#include "kivcore/debug/ProfileDataLog.h"
#include "kivcore/kivcore_export.h"

namespace kivcore::debug {

class DebugDatabase;

class KIVCORE_EXPORT CodeProfilerManager {
 public:
  static constexpr int kDefaultVolume = 50;
  static constexpr const char* kConditionalKey = "kivcore.Profile.Conditional";
  static constexpr const char* kVolumeKey = "kivcore.Profile.Volume";

  // The process-wide manager (never destroyed), set up from DebugDatabase::Instance().
  static CodeProfilerManager& Get();

  // A manager with default settings and no logs; Get() is the one regions report to.
  CodeProfilerManager() = default;
  CodeProfilerManager(const CodeProfilerManager&) = delete;
  CodeProfilerManager& operator=(const CodeProfilerManager&) = delete;

  bool IsConditionalProfiling() const noexcept { return mConditional.load(std::memory_order_relaxed); }
  void SetConditionalProfiling(bool conditional) noexcept;
  int GetProfilingVolume() const noexcept { return mVolume.load(std::memory_order_relaxed); }
  void SetProfilingVolume(int volume) noexcept;
  // Whether a log of `volume` is timed under the current settings.
  bool IsVolumeProfiled(int volume) const noexcept;
  // Applies the profiler keys found in `database`.
  void LoadSettings(const DebugDatabase& database);

  boost::intrusive_ptr<ProfileDataLog> CreateNewProfileDataLog(const char* name, int volume);
  // The log named `name` made by an earlier call of this function, or a new one: one log per region name.
  boost::intrusive_ptr<ProfileDataLog> GetOrCreateProfileDataLog(const char* name, int volume);

  // A table of the logs by name (logs sharing a name are added up), longest total first: region, calls,
  // total ms, mean, min and max µs.
  std::string Summary() const;
  // Zeroes every log's statistics; the logs stay, since regions hold on to them.
  void Reset();

 private:
  std::atomic<bool> mConditional{false};
  std::atomic<int> mVolume{kDefaultVolume};
  mutable std::mutex mMutex;
  std::vector<boost::intrusive_ptr<ProfileDataLog>> mLogs;                          // guarded by mMutex
  std::map<std::string, boost::intrusive_ptr<ProfileDataLog>, std::less<>> mNamed;  // guarded by mMutex
};

}  // namespace kivcore::debug
