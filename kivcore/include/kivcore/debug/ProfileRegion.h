#pragma once
// A named profiled region for call sites that want no setup:
//   static utility::Indestructible<ProfileRegion> region("kivmachinelearning.LocalEvaluator Predict");
//   auto scope = region->Scope();
// (Indestructible where worker threads may pass the site while the process exits.)
// Its log (one per region name, shared by regions of the same name) is made on the first timed pass.
// Scope() asks CodeProfilerManager::Get() on every pass whether the region's volume is profiled and
// gives an inert CodeProfiler when it is not. Safe to share between threads.

#include <atomic>
#include <mutex>
#include <string>

#include <boost/intrusive_ptr.hpp>

#include "kivcore/debug/CodeProfiler.h"
#include "kivcore/debug/CodeProfilerManager.h"
#include "kivcore/debug/ProfileDataLog.h"
#include "kivcore/kivcore_export.h"

namespace kivcore::debug {

class KIVCORE_EXPORT ProfileRegion {
 public:
  explicit ProfileRegion(const char* name, int volume = CodeProfilerManager::kDefaultVolume);
  ProfileRegion(const ProfileRegion&) = delete;
  ProfileRegion& operator=(const ProfileRegion&) = delete;

  CodeProfiler Scope();
  // Null until the region has been timed once.
  boost::intrusive_ptr<ProfileDataLog> Log() const;

 private:
  const std::string mName;
  const int mVolume;
  mutable std::mutex mMutex;
  boost::intrusive_ptr<ProfileDataLog> mLog;     // guarded by mMutex; set once
  std::atomic<ProfileDataLog*> mReady{nullptr};  // mLog once set, so that later passes take no lock
};

}  // namespace kivcore::debug
