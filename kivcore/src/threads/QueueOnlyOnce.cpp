#include "kivcore/threads/QueueOnlyOnce.h"

#include <algorithm>
#include <climits>
#include <utility>

#include "OwnedTask.h"
#include "kivcore/config/ResultCodes.h"
#include "kivcore/config/kiv_exception.h"

namespace kivcore::threads {

// A lost run returns the state machine to idle, so that the object is not stuck "queued" forever.
class QueueOnlyOnce::Run
    : public OwnedTask<QueueOnlyOnce, &QueueOnlyOnce::Execute, &QueueOnlyOnce::OnRunLost> {
 public:
  using OwnedTask::OwnedTask;
};

std::shared_ptr<QueueOnlyOnce> QueueOnlyOnce::Create(std::function<void()> task,
                                                     std::shared_ptr<async::AsyncExecutor> executor,
                                                     unsigned priority, unsigned reserved) {
  if (!task || !executor) {
    throw config::kiv_exception("QueueOnlyOnce needs a task and an executor", config::eInvalidArgument);
  }
  if (reserved != 0) {
    throw config::kiv_exception("QueueOnlyOnce: the reserved argument must be 0", config::eInvalidArgument);
  }
  const int runPriority = static_cast<int>(std::min(priority, static_cast<unsigned>(INT_MAX)));
  return std::shared_ptr<QueueOnlyOnce>(new QueueOnlyOnce(std::move(task), std::move(executor), runPriority));
}

QueueOnlyOnce::QueueOnlyOnce(std::function<void()> task, std::shared_ptr<async::AsyncExecutor> executor,
                             int priority)
    : mTask(std::move(task)), mExecutor(std::move(executor)), mPriority(priority) {}

QueueOnlyOnce::~QueueOnlyOnce() = default;

bool QueueOnlyOnce::Trigger() {
  // Even the transitions that keep the value are written, so that the run that will see this trigger
  // acquires everything the caller did before it.
  int state = mState.load(std::memory_order_relaxed);
  for (;;) {
    const int next = state == kIdle ? kQueued : state == kRunning ? kRunningPending : state;
    if (mState.compare_exchange_weak(state, next, std::memory_order_acq_rel, std::memory_order_relaxed)) {
      return state == kIdle ? PostRun() : true;
    }
  }
}

bool QueueOnlyOnce::PostRun() {
  // On refusal the Run is destroyed unrun inside Post and has already put the state back to idle.
  return mExecutor->Post(Run(shared_from_this()), mPriority);
}

void QueueOnlyOnce::Execute() {
  mState.exchange(kRunning, std::memory_order_acq_rel);  // from kQueued; later triggers ask for another run
  try {
    mTask();
  } catch (...) {
    FinishRun();
    throw;  // for the executor to log
  }
  FinishRun();
}

void QueueOnlyOnce::FinishRun() {
  int expected = kRunning;
  if (mState.compare_exchange_strong(expected, kIdle, std::memory_order_acq_rel, std::memory_order_acquire)) {
    return;
  }
  // A trigger came during the run (kRunningPending): exactly one more run, posted only now so that the two
  // never overlap.
  mState.exchange(kQueued, std::memory_order_acq_rel);
  PostRun();
}

void QueueOnlyOnce::OnRunLost() noexcept {
  mState.exchange(kIdle, std::memory_order_acq_rel);
}

}  // namespace kivcore::threads
