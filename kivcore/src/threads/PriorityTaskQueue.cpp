#include "PriorityTaskQueue.h"

#include <algorithm>
#include <utility>

namespace kivcore::threads {

void PriorityTaskQueue::Push(std::function<void()> task, int priority) {
  mHeap.push_back(Entry{priority, mNextSequence++, std::move(task)});
  std::push_heap(mHeap.begin(), mHeap.end(), &StartsLater);
}

std::function<void()> PriorityTaskQueue::Pop() {
  std::pop_heap(mHeap.begin(), mHeap.end(), &StartsLater);
  std::function<void()> task = std::move(mHeap.back().task);
  mHeap.pop_back();
  return task;
}

PriorityTaskQueue PriorityTaskQueue::TakeAll() noexcept {
  PriorityTaskQueue taken;
  taken.mHeap.swap(mHeap);
  return taken;
}

}  // namespace kivcore::threads
