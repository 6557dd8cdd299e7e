#include "kivcore/threads/Gate.h"

namespace kivcore::threads {

Gate::Gate(bool open) : mOpen(open) {}

Gate::~Gate() = default;

void Gate::Open() {
  if (mOpen.load(std::memory_order_acquire)) {
    return;  // nobody can be waiting at an open gate; most opens find it so
  }
  std::lock_guard lock(mMutex);
  if (mOpen.load(std::memory_order_relaxed)) {
    return;
  }
  mOpen.store(true, std::memory_order_release);
  ++mOpenings;
  // Signalled under the lock: a waiter that sees the gate open may destroy it as soon as we let go.
  mOpened.notify_all();
}

void Gate::Close() {
  std::lock_guard lock(mMutex);
  mOpen.store(false, std::memory_order_release);
}

bool Gate::PassThroughUntil(const std::chrono::steady_clock::time_point& deadline) const {
  if (IsOpen()) {
    return true;
  }
  std::unique_lock lock(mMutex);
  const std::uint64_t openings = mOpenings;
  return mOpened.wait_until(lock, deadline, [this, openings] {
    return mOpen.load(std::memory_order_relaxed) || mOpenings != openings;
  });
}

}  // namespace kivcore::threads
