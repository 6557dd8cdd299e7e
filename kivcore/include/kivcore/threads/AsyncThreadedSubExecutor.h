#pragma once
// An executor that runs its tasks on another executor's threads, at most maxConcurrent at a time.
// - Its own queue orders its tasks: highest priority first, posting order within a priority. With a width
//   of 1 it is a serial queue: its tasks never overlap and start in that order.
// - Each running slot is one task posted on the parent (at the priority of the task it will run), which
//   runs one task and then reposts itself while work remains; the parent's order decides between this
//   executor's work and the parent's other work.
// - Pause, Resume and Shutdown act on this executor only. Shutdown refuses later posts and destroys the
//   queued tasks unrun on the calling thread; it does not wait for the running ones.
// - While it has work posted on the parent it keeps itself alive, so its queued tasks still run after
//   its owner lets go. When the parent refuses that work, or destroys it unrun (parent shut down), this
//   executor becomes terminated and its queued tasks are destroyed unrun, breaking promises they hold.
//   Parents must take ownership of posted tasks (move them), not copy them.
// - An exception escaping a task is logged with a context naming this executor.

#include <climits>
#include <memory>

#include "kivcore/async/AsyncExecutor.h"
#include "kivcore/kivcore_export.h"

namespace kivcore::threads {

class KIVCORE_EXPORT AsyncThreadedSubExecutor final
    : public async::AsyncExecutor,
      public std::enable_shared_from_this<AsyncThreadedSubExecutor> {
 public:
  static constexpr int kUnbounded = INT_MAX;

  ~AsyncThreadedSubExecutor() override;

  bool Post(std::function<void()> task, int priority) override;
  void Pause() override;
  void Resume() override;
  bool IsPaused() const override;
  void Shutdown() override;
  bool IsTerminated() const override;

 private:
  struct State;  // defined with the implementation
  class Slot;    // a running slot, as posted on the parent

  friend KIVCORE_EXPORT std::shared_ptr<AsyncThreadedSubExecutor> CreateSubExecutor(
      const std::shared_ptr<async::AsyncExecutor>& parent, int maxConcurrent);

  AsyncThreadedSubExecutor(const std::shared_ptr<async::AsyncExecutor>& parent, int maxConcurrent);

  // Posts `count` slots on the parent (already counted as running); false when the parent refused one.
  bool StartSlots(int count, int priority);
  // Runs one task in a slot, then keeps the slot going or gives it back.
  void RunSlot();
  // A slot was refused or destroyed unrun by the parent.
  void OnSlotLost() noexcept;
  void Terminate() noexcept;

  const std::unique_ptr<State> mState;  // never null; internally synchronized
};

// Throws kiv_exception(eInvalidArgument) when parent is null or maxConcurrent is below 1.
KIVCORE_EXPORT std::shared_ptr<AsyncThreadedSubExecutor> CreateSubExecutor(
    const std::shared_ptr<async::AsyncExecutor>& parent, int maxConcurrent);

// A sub-executor of GetCPUBoundExecutor() with no bound: the pool's width limits it, and it can be paused
// or shut down on its own.
KIVCORE_EXPORT std::shared_ptr<AsyncThreadedSubExecutor> CreateGreedySubExecutor();

}  // namespace kivcore::threads
