#pragma once
// The task queue of the executors: highest priority first, posting order within a priority. Not
// synchronized; its owner guards it. Push and Pop allocate only when the backing array grows.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace kivcore::threads {

class PriorityTaskQueue {
 public:
  void Push(std::function<void()> task, int priority);
  // Requires !Empty().
  std::function<void()> Pop();
  int TopPriority() const noexcept { return mHeap.front().priority; }
  bool Empty() const noexcept { return mHeap.empty(); }
  std::size_t Size() const noexcept { return mHeap.size(); }
  // Leaves this queue empty; the caller destroys the returned tasks, outside its lock, since destroying a
  // task may run arbitrary code (a broken promise's continuation may post again).
  PriorityTaskQueue TakeAll() noexcept;

 private:
  struct Entry {
    int priority;
    std::uint64_t sequence;
    std::function<void()> task;
  };
  // Orders the heap so that its front is the highest priority, earliest posted entry.
  static bool StartsLater(const Entry& a, const Entry& b) noexcept {
    return a.priority < b.priority || (a.priority == b.priority && a.sequence > b.sequence);
  }

  std::vector<Entry> mHeap;
  std::uint64_t mNextSequence = 0;
};

}  // namespace kivcore::threads
