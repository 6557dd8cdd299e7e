#pragma once
// A fill-loop clock that never sleeps: time moves only when a test (or a fake backend) advances it, and a
// wait at a closed gate returns at once as a time-out, with the clock moved to the deadline. Every wait is
// recorded, and so is every idle spin; a hook can run during a wait or a spin (to queue a latecomer, say).

#include <functional>
#include <mutex>
#include <vector>

#include "BatchFillClock.h"

namespace kivml::testing {

class ManualFillClock final : public BatchFillClock {
 public:
  TimePoint Now() const override {
    std::lock_guard lock(mMutex);
    return mNow;
  }

  bool WaitAtGate(const kivcore::threads::Gate& gate, TimePoint deadline) const override {
    std::function<void()> hook;
    {
      std::lock_guard lock(mMutex);
      mWaits.push_back(std::chrono::duration_cast<std::chrono::milliseconds>(deadline - mNow));
      hook = std::exchange(mDuringNextWait, {});
    }
    if (hook) {
      hook();
    }
    if (gate.IsOpen()) {
      return true;
    }
    std::lock_guard lock(mMutex);
    mNow = std::max(mNow, deadline);
    return false;
  }

  // A spin is recorded apart from the waits and returns at once: true when the gate is open (the hook may
  // open it). Unlike a wait it leaves the clock alone, so that times a test checks do not depend on whether
  // an idle lane happened to be spinning meanwhile.
  bool SpinAtGate(const kivcore::threads::Gate& gate, TimePoint deadline) const override {
    std::function<void()> hook;
    {
      std::lock_guard lock(mMutex);
      mSpins.push_back(std::chrono::duration_cast<std::chrono::microseconds>(deadline - mNow));
      hook = std::exchange(mDuringNextSpin, {});
    }
    if (hook) {
      hook();
    }
    return gate.IsOpen();
  }

  void Advance(std::chrono::milliseconds elapsed) {
    std::lock_guard lock(mMutex);
    mNow += elapsed;
  }

  // Runs `hook` on the waiting thread during the next wait only.
  void DuringNextWait(std::function<void()> hook) {
    std::lock_guard lock(mMutex);
    mDuringNextWait = std::move(hook);
  }

  // Runs `hook` on the spinning thread during the next spin only.
  void DuringNextSpin(std::function<void()> hook) {
    std::lock_guard lock(mMutex);
    mDuringNextSpin = std::move(hook);
  }

  std::vector<std::chrono::microseconds> Spins() const {
    std::lock_guard lock(mMutex);
    return mSpins;
  }

  std::vector<std::chrono::milliseconds> Waits() const {
    std::lock_guard lock(mMutex);
    return mWaits;
  }

 private:
  mutable std::mutex mMutex;
  mutable TimePoint mNow{};
  mutable std::vector<std::chrono::milliseconds> mWaits;
  mutable std::function<void()> mDuringNextWait;
  mutable std::vector<std::chrono::microseconds> mSpins;
  mutable std::function<void()> mDuringNextSpin;
};

}  // namespace kivml::testing
