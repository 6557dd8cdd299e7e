#pragma once
// An executor refused a task, or destroyed it unrun, because it has been shut down.
// Message "Executor Is Terminated", result code async::eExecutorIsTerminated. Immutable once thrown: safe to
// rethrow on any thread.

#include "kivcore/config/kiv_exception.h"
#include "kivcore/kivcore_export.h"

namespace kivcore::async {

class KIVCORE_EXPORT ExecutorIsTerminatedException : public config::kiv_exception {
 public:
  ExecutorIsTerminatedException();
  ExecutorIsTerminatedException(const ExecutorIsTerminatedException& other);
  ExecutorIsTerminatedException& operator=(const ExecutorIsTerminatedException& other);
  ~ExecutorIsTerminatedException() override;
};

}  // namespace kivcore::async
