// The process-wide executors. Each is created on first use (thread-safe static initialisation) and
// deliberately leaked: tasks and continuations may still be running or posted while static objects are
// destroyed, and joining threads from a static destructor (or from DllMain on Windows) could deadlock.
#include <algorithm>
#include <memory>

#include "kivcore/async/AsyncExecutor.h"
#include "kivcore/threads/AsyncThreadedExecutor.h"
#include "kivcore/threads/AsyncThreadedSubExecutor.h"
#include "kivcore/utility/CPUCount.h"

namespace kivcore::threads {

namespace {

std::shared_ptr<AsyncThreadedExecutor> CreatePool(const char* name, int threadCount) {
  return CreateAsyncThreadedExecutor(name, threadCount, ThreadPriority::kNormal, {}, {}, ThreadAttributes{});
}

}  // namespace

std::shared_ptr<AsyncThreadedExecutor> GetCPUBoundExecutor() {
  static const auto* const executor = new std::shared_ptr<AsyncThreadedExecutor>(
      CreatePool("kiv-cpu", static_cast<int>(utility::CPUCount())));
  return *executor;
}

std::shared_ptr<AsyncThreadedSubExecutor> CreateGreedySubExecutor() {
  return CreateSubExecutor(GetCPUBoundExecutor(), AsyncThreadedSubExecutor::kUnbounded);
}

}  // namespace kivcore::threads

namespace kivcore::async {

std::shared_ptr<AsyncExecutor> GetDefaultExecutor() {
  static const auto* const executor = new std::shared_ptr<AsyncExecutor>(
      threads::CreatePool("kiv-default", static_cast<int>(std::max(2u, utility::CPUCount()))));
  return *executor;
}

}  // namespace kivcore::async
