#pragma once
// A replaceable process-wide callback (log sink, trace sink, assert handler). Readers take a counted
// reference under a short lock and call it outside, so a callback may run on several threads at once,
// replace itself, or report through the same facility without deadlocking.

#include <memory>
#include <mutex>
#include <utility>

namespace kivcore::utility {

template <class Callback>
class CallbackSlot {
 public:
  // Installs `next` (an empty callback clears the slot) and returns the one it replaces, or an empty one.
  Callback Exchange(Callback next) {
    auto installed = next ? std::make_shared<const Callback>(std::move(next)) : nullptr;
    {
      std::lock_guard lock(mMutex);
      mCallback.swap(installed);
    }
    return installed ? *installed : Callback();
  }

  // The installed callback, or null.
  std::shared_ptr<const Callback> Get() const {
    std::lock_guard lock(mMutex);
    return mCallback;
  }

 private:
  mutable std::mutex mMutex;
  std::shared_ptr<const Callback> mCallback;  // guarded by mMutex
};

}  // namespace kivcore::utility
