#include "kivcore/async/ContinuationNode.h"

#include <exception>
#include <functional>
#include <utility>

#include "kivcore/async/AsyncExecutor.h"
#include "kivcore/logging/Logging.h"

namespace kivcore::async {

// The callable given to the executor. std::function wants a copyable callable, and an executor that
// drops a task unrun must still release the node, so the handle counts references.
class ContinuationNode::TaskHandle {
 public:
  // Adopts one reference.
  explicit TaskHandle(ContinuationNode* node) noexcept : mNode(node) {}
  TaskHandle(const TaskHandle& other) noexcept : mNode(other.mNode) {
    if (mNode != nullptr) {
      mNode->mReferences.fetch_add(1, std::memory_order_relaxed);
    }
  }
  TaskHandle(TaskHandle&& other) noexcept : mNode(std::exchange(other.mNode, nullptr)) {}
  TaskHandle& operator=(const TaskHandle&) = delete;
  TaskHandle& operator=(TaskHandle&&) = delete;
  ~TaskHandle() {
    if (mNode != nullptr) {
      mNode->Release();
    }
  }

  void operator()() const {
    if (mNode != nullptr && !mNode->mStarted.exchange(true, std::memory_order_acq_rel)) {
      mNode->Run();
    }
  }

 private:
  ContinuationNode* mNode;
};

ContinuationNode::~ContinuationNode() = default;

void ContinuationNode::Release() noexcept {
  if (mReferences.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    delete this;
  }
}

void ContinuationNode::PostTo(AsyncExecutor& executor) noexcept {
  try {
    // A refused task is destroyed by the executor, which releases the node: nothing more to do here.
    executor.Post(std::function<void()>(TaskHandle(this)), kPriority);
  } catch (...) {
    // Out of memory while queueing: the handle has already released the node.
    logging::LogException(std::current_exception(), "posting a future continuation", nullptr);
  }
}

}  // namespace kivcore::async
