#pragma once
// A value was read from a future that has not completed yet (reads never block).
// Message "Future: Not Ready", result code async::eFutureNotReady. Immutable once thrown: safe to rethrow on
// any thread.

#include "kivcore/config/kiv_exception.h"
#include "kivcore/kivcore_export.h"

namespace kivcore::async {

class KIVCORE_EXPORT FutureNotReadyException : public config::kiv_exception {
 public:
  FutureNotReadyException();
  FutureNotReadyException(const FutureNotReadyException& other);
  FutureNotReadyException& operator=(const FutureNotReadyException& other);
  ~FutureNotReadyException() override;
};

}  // namespace kivcore::async
