#pragma once
// An executor that owns a fixed set of named worker threads.
// - Tasks start highest priority first, in posting order within a priority, as workers become free.
//   With several workers, tasks started in that order may still run side by side.
// - Post never waits for a task; it takes the queue lock only long enough to push.
// - Each worker runs onThreadStart before its first task and onThreadEnd after its last, on itself.
// - Shutdown refuses later posts, destroys the queued tasks unrun on the calling thread, and waits for
//   the running tasks by joining every worker, except the calling thread when it is one of the workers:
//   that one is detached and ends after the task that called Shutdown returns. The destructor shuts down,
//   so dropping the last reference from inside a task of this executor is safe.
// - Workers keep the executor's internal state alive, not the executor: a task that needs the executor
//   after it returns must hold a reference itself.
// - An exception escaping a task (or onThreadStart/onThreadEnd) is logged with a context naming the
//   executor and the worker goes on.

#include <memory>
#include <string>

#include <boost/function.hpp>

#include "kivcore/async/AsyncExecutor.h"
#include "kivcore/kivcore_export.h"
#include "kivcore/threads/ThreadAttributes.h"
#include "kivcore/threads/ThreadPriority.h"

namespace kivcore::threads {

class KIVCORE_EXPORT AsyncThreadedExecutor final : public async::AsyncExecutor {
 public:
  ~AsyncThreadedExecutor() override;

  bool Post(std::function<void()> task, int priority) override;
  void Pause() override;
  void Resume() override;
  bool IsPaused() const override;
  void Shutdown() override;
  bool IsTerminated() const override;

  const std::string& GetName() const noexcept;
  int GetThreadCount() const noexcept;
  // True on the workers of this executor (while they live), false everywhere else.
  bool IsCurrentThreadWorker() const noexcept;

  struct State;  // shared by the executor and its workers; defined with the implementation

 private:
  friend KIVCORE_EXPORT std::shared_ptr<AsyncThreadedExecutor> CreateAsyncThreadedExecutor(
      const std::string& name, int threadCount, ThreadPriority priority,
      const boost::function<void()>& onThreadStart, const boost::function<void()>& onThreadEnd,
      const ThreadAttributes& attributes);

  explicit AsyncThreadedExecutor(std::shared_ptr<State> state);

  const std::shared_ptr<State> mState;  // never null; internally synchronized
};

// Starts `threadCount` (at least 1) workers named "<name>-<index>" (cut to the platform's limit) at
// `priority`. Empty onThreadStart/onThreadEnd are allowed. Throws kiv_exception(eInvalidArgument) for a
// thread count below 1 and std::system_error when the platform cannot start a thread.
KIVCORE_EXPORT std::shared_ptr<AsyncThreadedExecutor> CreateAsyncThreadedExecutor(
    const std::string& name, int threadCount, ThreadPriority priority,
    const boost::function<void()>& onThreadStart, const boost::function<void()>& onThreadEnd,
    const ThreadAttributes& attributes);

// The process-wide pool for CPU-bound work: CPUCount() workers at normal priority, created on first use
// and never destroyed, so that its tasks may still run during static destruction.
KIVCORE_EXPORT std::shared_ptr<AsyncThreadedExecutor> GetCPUBoundExecutor();

}  // namespace kivcore::threads
