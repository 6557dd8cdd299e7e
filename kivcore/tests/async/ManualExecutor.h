#pragma once
// Test executor: queues tasks and runs them on the test's thread only when the test calls RunAll, so a
// continuation that ran inline shows up as having run without RunAll.

#include <deque>
#include <functional>
#include <mutex>

#include "kivcore/async/AsyncExecutor.h"

namespace kivcore::async::testing {

class ManualExecutor final : public AsyncExecutor {
 public:
  bool Post(std::function<void()> task, int priority) override;
  void Pause() override {}
  void Resume() override {}
  bool IsPaused() const override { return false; }
  void Shutdown() override;  // drops the queued tasks unrun
  bool IsTerminated() const override;

  // Runs queued tasks, and those they post, until none is left; returns how many ran.
  int RunAll();

 private:
  mutable std::mutex mMutex;
  std::deque<std::function<void()>> mTasks;  // guarded by mMutex
  bool mTerminated = false;                  // guarded by mMutex
};

}  // namespace kivcore::async::testing
