#include "ManualExecutor.h"

#include <utility>

namespace kivcore::async::testing {

bool ManualExecutor::Post(std::function<void()> task, int /*priority*/) {
  std::lock_guard<std::mutex> lock(mMutex);
  if (!mTerminated) {
    mTasks.push_back(std::move(task));
  }
  return !mTerminated;
}

void ManualExecutor::Shutdown() {
  std::deque<std::function<void()>> dropped;  // destroyed outside the lock: they may post
  std::lock_guard<std::mutex> lock(mMutex);
  mTerminated = true;
  dropped.swap(mTasks);
}

bool ManualExecutor::IsTerminated() const {
  std::lock_guard<std::mutex> lock(mMutex);
  return mTerminated;
}

int ManualExecutor::RunAll() {
  for (int ran = 0;; ++ran) {
    std::function<void()> task;
    {
      std::lock_guard<std::mutex> lock(mMutex);
      if (mTasks.empty()) {
        return ran;
      }
      task = std::move(mTasks.front());
      mTasks.pop_front();
    }
    task();
  }
}

}  // namespace kivcore::async::testing
