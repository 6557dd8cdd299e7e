#pragma once
// Posting a task without checking the executor first: false when the executor is null or refuses the
// task (shut down), in which case the task has been destroyed unrun by the time CallAsync returns.
// One overload per executor type, so that callers holding a derived pointer do not pay for a converted
// shared_ptr copy.

#include <functional>
#include <memory>
#include <utility>

#include "kivcore/async/AsyncExecutor.h"
#include "kivcore/threads/AsyncThreadedExecutor.h"
#include "kivcore/threads/AsyncThreadedSubExecutor.h"

namespace kivcore::threads {

inline bool CallAsync(const std::shared_ptr<async::AsyncExecutor>& executor, std::function<void()> task,
                      int priority = 0) {
  return executor != nullptr && executor->Post(std::move(task), priority);
}

inline bool CallAsync(const std::shared_ptr<AsyncThreadedExecutor>& executor, std::function<void()> task,
                      int priority = 0) {
  return executor != nullptr && executor->Post(std::move(task), priority);
}

inline bool CallAsync(const std::shared_ptr<AsyncThreadedSubExecutor>& executor, std::function<void()> task,
                      int priority = 0) {
  return executor != nullptr && executor->Post(std::move(task), priority);
}

}  // namespace kivcore::threads
