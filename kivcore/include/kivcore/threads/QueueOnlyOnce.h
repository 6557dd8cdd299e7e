#pragma once
// Runs a task on an executor at most once per burst of triggers.
// - Trigger queues a run unless one is already queued: triggers made while a run is queued fold into it.
// - A trigger made while the task is running queues exactly one more run after it, so the task always
//   runs after the last trigger, whatever the executor's width.
// - Runs never overlap, even on a multi-threaded executor: the next run is posted only when the previous
//   one has finished.
// - Everything a caller did before Trigger is visible to the run that the trigger caused or joined.
// - A queued run holds a strong reference: the object lives until its last run has finished, even when
//   its creator lets go. A run the executor destroys unrun (shut down) returns the object to idle.
// Trigger never blocks and takes no lock.

#include <atomic>
#include <functional>
#include <memory>

#include "kivcore/async/AsyncExecutor.h"
#include "kivcore/kivcore_export.h"

namespace kivcore::threads {

class KIVCORE_EXPORT QueueOnlyOnce final : public std::enable_shared_from_this<QueueOnlyOnce> {
 public:
  // `priority` is the priority at which each run is posted on `executor`. `reserved` must be 0 (kept
  // for call compatibility). Throws kiv_exception(eInvalidArgument) for an empty task, a null executor
  // or a non-zero `reserved`.
  static std::shared_ptr<QueueOnlyOnce> Create(std::function<void()> task,
                                               std::shared_ptr<async::AsyncExecutor> executor,
                                               unsigned priority, unsigned reserved);

  ~QueueOnlyOnce();
  QueueOnlyOnce(const QueueOnlyOnce&) = delete;
  QueueOnlyOnce& operator=(const QueueOnlyOnce&) = delete;

  // True when a run is queued or running that will see this trigger; false when the executor refused the
  // run (the object is then idle again, and a later trigger tries again).
  bool Trigger();

 private:
  class Run;  // the queued run, as posted on the executor

  enum StateValue : int { kIdle, kQueued, kRunning, kRunningPending };

  QueueOnlyOnce(std::function<void()> task, std::shared_ptr<async::AsyncExecutor> executor, int priority);

  bool PostRun();
  void Execute();
  void FinishRun();
  void OnRunLost() noexcept;

  const std::function<void()> mTask;  // invoked only by the single run in flight
  const std::shared_ptr<async::AsyncExecutor> mExecutor;
  const int mPriority;
  std::atomic<int> mState{kIdle};  // the state machine; every transition is a read-modify-write
};

}  // namespace kivcore::threads
