#include "kivcore/threads/AsyncThreadedExecutor.h"

#include <atomic>
#include <condition_variable>
#include <exception>
#include <mutex>
#include <utility>
#include <vector>

#include "NativeThread.h"
#include "PriorityTaskQueue.h"
#include "kivcore/config/ResultCodes.h"
#include "kivcore/config/kiv_exception.h"
#include "kivcore/logging/Logging.h"

namespace kivcore::threads {

namespace {

void LogEscapedException(const std::string& context) noexcept {
  try {
    logging::LogException(std::current_exception(), utility::StringValue(context), nullptr);
  } catch (...) {
    // Nothing is left to report to; the worker must go on regardless.
  }
}

}  // namespace

struct AsyncThreadedExecutor::State {
  State(const std::string& executorName, ThreadPriority threadPriority,
        const boost::function<void()>& onStart, const boost::function<void()>& onEnd)
      : name(executorName),
        logContext("AsyncThreadedExecutor " + executorName),
        priority(threadPriority),
        onThreadStart(onStart),
        onThreadEnd(onEnd) {}

  void WorkerMain(int index);
  void CallHook(const boost::function<void()>& hook) noexcept;

  const std::string name;
  const std::string logContext;
  const ThreadPriority priority;
  const boost::function<void()> onThreadStart;
  const boost::function<void()> onThreadEnd;
  int threadCount = 0;  // set before the executor is handed out, constant afterwards

  std::mutex mutex;
  std::condition_variable wake;         // signalled on post, resume and shutdown
  PriorityTaskQueue queue;              // guarded by mutex
  int idleWorkers = 0;                  // guarded by mutex: workers blocked on `wake`
  std::atomic<bool> paused{false};      // written under mutex; read without it
  std::atomic<bool> terminated{false};  // written under mutex; read without it

  // Held while threads are started or joined, so that a second Shutdown from outside waits for the
  // first. Never taken together with `mutex`; workers only try it, since its holder may be joining them.
  std::mutex threadsMutex;
  std::vector<NativeThread> threads;  // guarded by threadsMutex
};

namespace {
// The executor state whose worker the current thread is, for IsCurrentThreadWorker.
thread_local const AsyncThreadedExecutor::State* tWorkerOf = nullptr;
}  // namespace

void AsyncThreadedExecutor::State::CallHook(const boost::function<void()>& hook) noexcept {
  if (hook.empty()) {
    return;
  }
  try {
    hook();
  } catch (...) {
    LogEscapedException(logContext);
  }
}

void AsyncThreadedExecutor::State::WorkerMain(int index) {
  tWorkerOf = this;
  NativeThread::SetCurrentThreadName(name + "-" + std::to_string(index));
  NativeThread::SetCurrentThreadPriority(priority);
  CallHook(onThreadStart);

  std::unique_lock lock(mutex);
  while (!terminated.load(std::memory_order_relaxed)) {
    if (paused.load(std::memory_order_relaxed) || queue.Empty()) {
      ++idleWorkers;
      wake.wait(lock);
      --idleWorkers;
      continue;
    }
    {
      std::function<void()> task = queue.Pop();
      lock.unlock();
      try {
        task();
      } catch (...) {
        LogEscapedException(logContext);
      }
      // The task is destroyed here, before the lock is taken again: its destructor may post.
    }
    lock.lock();
  }
  lock.unlock();

  CallHook(onThreadEnd);
  tWorkerOf = nullptr;
}

AsyncThreadedExecutor::AsyncThreadedExecutor(std::shared_ptr<State> state) : mState(std::move(state)) {}

AsyncThreadedExecutor::~AsyncThreadedExecutor() {
  Shutdown();
}

bool AsyncThreadedExecutor::Post(std::function<void()> task, int priority) {
  State& state = *mState;
  std::lock_guard lock(state.mutex);
  if (state.terminated.load(std::memory_order_relaxed)) {
    return false;  // `task` is destroyed by the caller's frame, outside the lock
  }
  state.queue.Push(std::move(task), priority);
  // Signalled under the lock: once it is released, the last owner may destroy the state (and `wake`).
  if (state.idleWorkers > 0 && !state.paused.load(std::memory_order_relaxed)) {
    state.wake.notify_one();
  }
  return true;
}

void AsyncThreadedExecutor::Pause() {
  std::lock_guard lock(mState->mutex);
  mState->paused.store(true, std::memory_order_relaxed);
}

void AsyncThreadedExecutor::Resume() {
  std::lock_guard lock(mState->mutex);
  mState->paused.store(false, std::memory_order_relaxed);
  if (mState->idleWorkers > 0) {
    mState->wake.notify_all();
  }
}

bool AsyncThreadedExecutor::IsPaused() const {
  return mState->paused.load(std::memory_order_relaxed);
}

bool AsyncThreadedExecutor::IsTerminated() const {
  return mState->terminated.load(std::memory_order_relaxed);
}

void AsyncThreadedExecutor::Shutdown() {
  State& state = *mState;
  {
    PriorityTaskQueue dropped;
    {
      std::lock_guard lock(state.mutex);
      state.terminated.store(true, std::memory_order_relaxed);
      dropped = state.queue.TakeAll();
    }
    state.wake.notify_all();
    // `dropped` goes here, unrun and outside the lock.
  }

  const bool onWorker = IsCurrentThreadWorker();
  std::unique_lock threadsLock(state.threadsMutex, std::defer_lock);
  if (onWorker) {
    // Whoever holds the lock is already joining the workers, possibly this one: waiting for it would
    // deadlock, and it will finish the job.
    if (!threadsLock.try_lock()) {
      return;
    }
  } else {
    threadsLock.lock();
  }
  std::vector<NativeThread> remaining;
  for (NativeThread& thread : state.threads) {
    if (thread.IsCurrentThread()) {
      // A worker cannot join itself. Its handle stays for a later Shutdown from another thread to join;
      // if none comes, the state detaches it when the worker, its last owner, ends.
      remaining.push_back(std::move(thread));
    } else {
      thread.Join();
    }
  }
  state.threads = std::move(remaining);
}

const std::string& AsyncThreadedExecutor::GetName() const noexcept {
  return mState->name;
}

int AsyncThreadedExecutor::GetThreadCount() const noexcept {
  return mState->threadCount;
}

bool AsyncThreadedExecutor::IsCurrentThreadWorker() const noexcept {
  return tWorkerOf == mState.get();
}

std::shared_ptr<AsyncThreadedExecutor> CreateAsyncThreadedExecutor(
    const std::string& name, int threadCount, ThreadPriority priority,
    const boost::function<void()>& onThreadStart, const boost::function<void()>& onThreadEnd,
    const ThreadAttributes& attributes) {
  if (threadCount < 1) {
    throw config::kiv_exception("An executor needs at least one thread", config::eInvalidArgument);
  }
  auto state = std::make_shared<AsyncThreadedExecutor::State>(name, priority, onThreadStart, onThreadEnd);
  state->threadCount = threadCount;
  // Owned before any thread starts, so that a failed start shuts down (joins) the ones already running.
  std::shared_ptr<AsyncThreadedExecutor> executor(new AsyncThreadedExecutor(state));
  std::lock_guard lock(state->threadsMutex);
  state->threads.reserve(static_cast<std::size_t>(threadCount));
  for (int index = 0; index < threadCount; ++index) {
    state->threads.emplace_back(attributes.stackSize, [state, index] { state->WorkerMain(index); });
  }
  return executor;
}

}  // namespace kivcore::threads
