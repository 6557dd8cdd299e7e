#include "kivcore/debug/ProfileRegion.h"

namespace kivcore::debug {

ProfileRegion::ProfileRegion(const char* name, int volume)
    : mName(name != nullptr ? name : ""), mVolume(volume) {}

CodeProfiler ProfileRegion::Scope() {
  CodeProfilerManager& manager = CodeProfilerManager::Get();
  if (!manager.IsVolumeProfiled(mVolume)) {
    return CodeProfiler(nullptr);
  }
  // mLog is never reset once set and lives as long as this region, so the raw pointer stays valid.
  ProfileDataLog* log = mReady.load(std::memory_order_acquire);
  if (log == nullptr) {
    std::lock_guard lock(mMutex);
    if (!mLog) {
      mLog = manager.GetOrCreateProfileDataLog(mName.c_str(), mVolume);
      mReady.store(mLog.get(), std::memory_order_release);
    }
    log = mLog.get();
  }
  return CodeProfiler(boost::intrusive_ptr<ProfileDataLog>(log));
}

boost::intrusive_ptr<ProfileDataLog> ProfileRegion::Log() const {
  std::lock_guard lock(mMutex);
  return mLog;
}

}  // namespace kivcore::debug
