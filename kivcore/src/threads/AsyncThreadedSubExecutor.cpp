#include "kivcore/threads/AsyncThreadedSubExecutor.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <mutex>
#include <string>
#include <utility>

#include "OwnedTask.h"
#include "PriorityTaskQueue.h"
#include "kivcore/config/ResultCodes.h"
#include "kivcore/config/kiv_exception.h"
#include "kivcore/logging/Logging.h"
#include "kivcore/threads/AsyncThreadedExecutor.h"

namespace kivcore::threads {

struct AsyncThreadedSubExecutor::State {
  State(const std::shared_ptr<async::AsyncExecutor>& parentExecutor, int width)
      : parent(parentExecutor), maxConcurrent(width), logContext(MakeLogContext(*parentExecutor)) {}

  static std::string MakeLogContext(const async::AsyncExecutor& parentExecutor) {
    const auto* threaded = dynamic_cast<const AsyncThreadedExecutor*>(&parentExecutor);
    return threaded != nullptr ? "AsyncThreadedSubExecutor on " + threaded->GetName()
                               : "AsyncThreadedSubExecutor";
  }

  const std::shared_ptr<async::AsyncExecutor> parent;
  const int maxConcurrent;
  const std::string logContext;

  std::mutex mutex;                     // never held while calling the parent or running a task
  PriorityTaskQueue queue;              // guarded by mutex
  int slots = 0;                        // guarded by mutex: slots posted on the parent or running
  std::atomic<bool> paused{false};      // written under mutex; read without it
  std::atomic<bool> terminated{false};  // written under mutex; read without it
};

// A slot terminates the sub-executor when it is lost, so that queued tasks do not wait forever.
class AsyncThreadedSubExecutor::Slot
    : public OwnedTask<AsyncThreadedSubExecutor, &AsyncThreadedSubExecutor::RunSlot,
                       &AsyncThreadedSubExecutor::OnSlotLost> {
 public:
  using OwnedTask::OwnedTask;
};

AsyncThreadedSubExecutor::AsyncThreadedSubExecutor(const std::shared_ptr<async::AsyncExecutor>& parent,
                                                   int maxConcurrent)
    : mState(std::make_unique<State>(parent, maxConcurrent)) {}

AsyncThreadedSubExecutor::~AsyncThreadedSubExecutor() {
  Terminate();
}

bool AsyncThreadedSubExecutor::Post(std::function<void()> task, int priority) {
  State& state = *mState;
  int topPriority = 0;
  {
    std::lock_guard lock(state.mutex);
    if (state.terminated.load(std::memory_order_relaxed)) {
      return false;
    }
    state.queue.Push(std::move(task), priority);
    if (state.paused.load(std::memory_order_relaxed) || state.slots >= state.maxConcurrent) {
      return true;  // a running slot or Resume picks it up
    }
    ++state.slots;
    topPriority = state.queue.TopPriority();
  }
  return StartSlots(1, topPriority);
}

bool AsyncThreadedSubExecutor::StartSlots(int count, int priority) {
  for (int i = 0; i < count; ++i) {
    if (!mState->parent->Post(Slot(shared_from_this()), priority)) {
      return false;  // the refused slot has terminated this executor
    }
  }
  return true;
}

void AsyncThreadedSubExecutor::RunSlot() {
  State& state = *mState;
  {
    std::function<void()> task;
    {
      std::lock_guard lock(state.mutex);
      if (state.terminated.load(std::memory_order_relaxed) || state.paused.load(std::memory_order_relaxed) ||
          state.queue.Empty()) {
        --state.slots;
        return;
      }
      task = state.queue.Pop();
    }
    try {
      task();
    } catch (...) {
      try {
        logging::LogException(std::current_exception(), utility::StringValue(state.logContext), nullptr);
      } catch (...) {
        // Nothing is left to report to; the slot must go on regardless.
      }
    }
    // The task is destroyed here, outside the lock: its destructor may post.
  }
  int topPriority = 0;
  {
    std::lock_guard lock(state.mutex);
    if (state.terminated.load(std::memory_order_relaxed) || state.paused.load(std::memory_order_relaxed) ||
        state.queue.Empty()) {
      --state.slots;
      return;
    }
    topPriority = state.queue.TopPriority();
  }
  // Reposting rather than looping lets the parent interleave its other work between our tasks.
  StartSlots(1, topPriority);
}

void AsyncThreadedSubExecutor::OnSlotLost() noexcept {
  Terminate();
}

void AsyncThreadedSubExecutor::Terminate() noexcept {
  PriorityTaskQueue dropped;
  {
    std::lock_guard lock(mState->mutex);
    mState->terminated.store(true, std::memory_order_relaxed);
    dropped = mState->queue.TakeAll();
  }
  // `dropped` goes here, unrun and outside the lock.
}

void AsyncThreadedSubExecutor::Pause() {
  std::lock_guard lock(mState->mutex);
  mState->paused.store(true, std::memory_order_relaxed);
}

void AsyncThreadedSubExecutor::Resume() {
  State& state = *mState;
  int count = 0;
  int topPriority = 0;
  {
    std::lock_guard lock(state.mutex);
    state.paused.store(false, std::memory_order_relaxed);
    if (state.terminated.load(std::memory_order_relaxed) || state.queue.Empty()) {
      return;
    }
    const std::size_t freeSlots = static_cast<std::size_t>(state.maxConcurrent - state.slots);
    count = static_cast<int>(std::min(freeSlots, state.queue.Size()));
    state.slots += count;
    topPriority = state.queue.TopPriority();
  }
  StartSlots(count, topPriority);
}

bool AsyncThreadedSubExecutor::IsPaused() const {
  return mState->paused.load(std::memory_order_relaxed);
}

void AsyncThreadedSubExecutor::Shutdown() {
  Terminate();
}

bool AsyncThreadedSubExecutor::IsTerminated() const {
  return mState->terminated.load(std::memory_order_relaxed);
}

std::shared_ptr<AsyncThreadedSubExecutor> CreateSubExecutor(
    const std::shared_ptr<async::AsyncExecutor>& parent, int maxConcurrent) {
  if (!parent) {
    throw config::kiv_exception("A sub-executor needs a parent executor", config::eInvalidArgument);
  }
  if (maxConcurrent < 1) {
    throw config::kiv_exception("A sub-executor needs a width of at least 1", config::eInvalidArgument);
  }
  return std::shared_ptr<AsyncThreadedSubExecutor>(new AsyncThreadedSubExecutor(parent, maxConcurrent));
}

}  // namespace kivcore::threads
