#pragma once
// Something waiting for a future state to complete: a Then continuation, an OnComplete callback, or a
// runtime-internal hook. Threads: Schedule is called exactly once, by the thread that completes the state
// (or by the attaching thread when the state had completed already), never under a lock. A node that
// posts work hands itself to the task (PostTo); Run then executes once on the executor's thread.
// Lifetime: a pending node is owned by the state it waits on (destroyed unscheduled if that state dies
// first); from Schedule on it owns itself, and a posted node lives until the executor has run or dropped
// its task. Nodes are allocated through the memory recycler.

#include <atomic>
#include <cstdint>
#include <memory>

#include "kivcore/allocator/STLAllocator.h"
#include "kivcore/kivcore_export.h"

namespace kivcore::async {

class AsyncExecutor;
class FutureStateBase;

class KIVCORE_EXPORT ContinuationNode : public allocator::Allocated<ContinuationNode> {
 public:
  // The priority of posted continuations: the same for all, so they start in completion order.
  static constexpr int kPriority = 0;

  virtual ~ContinuationNode();
  ContinuationNode(const ContinuationNode&) = delete;
  ContinuationNode& operator=(const ContinuationNode&) = delete;

  // `completed` is the state this node waited on; it has a value or an exception. Takes over the caller's
  // reference to the node: the implementation posts, runs inline, or releases it.
  virtual void Schedule(const std::shared_ptr<FutureStateBase>& completed) noexcept = 0;

  // Drops one reference; the last one destroys the node.
  void Release() noexcept;

 protected:
  ContinuationNode() noexcept = default;

  // Hands the caller's reference to a task posted on `executor`. When the executor refuses the task or
  // destroys it unrun, the node is destroyed without Run having been called (HasRun() is false).
  void PostTo(AsyncExecutor& executor) noexcept;
  // The posted work; called at most once.
  virtual void Run() = 0;
  bool HasRun() const noexcept { return mStarted.load(std::memory_order_acquire); }

 private:
  friend class FutureStateBase;
  class TaskHandle;

  ContinuationNode* mNext = nullptr;  // link in the waiting list; owned by the state
  std::atomic<uint32_t> mReferences{1};
  std::atomic<bool> mStarted{false};
};

}  // namespace kivcore::async
