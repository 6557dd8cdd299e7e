#pragma once
// An executor runs queued tasks. Contract shared by every executor of the runtime:
// - Post queues a task and returns true, or returns false when the executor has been shut down (the task
//   is then destroyed unrun). Higher priorities start first; equal priorities start in posting order.
// - Pause stops the executor from starting tasks (tasks already running finish); Resume starts it again.
//   Tasks may be posted while paused.
// - Shutdown refuses every later Post and destroys the queued tasks unrun; it is idempotent.
// - An exception escaping a task is logged and does not stop the executor.

#include <functional>
#include <memory>

#include "kivcore/kivcore_export.h"

namespace kivcore::async {

class KIVCORE_EXPORT AsyncExecutor {
 public:
  virtual ~AsyncExecutor();

  virtual bool Post(std::function<void()> task, int priority) = 0;
  virtual void Pause() = 0;
  virtual void Resume() = 0;
  virtual bool IsPaused() const = 0;
  virtual void Shutdown() = 0;
  virtual bool IsTerminated() const = 0;

 protected:
  AsyncExecutor() = default;
  AsyncExecutor(const AsyncExecutor&) = delete;
  AsyncExecutor& operator=(const AsyncExecutor&) = delete;
};

// The executor on which futures run continuations that belong to no other queue. Process-wide; never
// shut down.
KIVCORE_EXPORT std::shared_ptr<AsyncExecutor> GetDefaultExecutor();

}  // namespace kivcore::async
