#pragma once
// The state behind a future is gone (for example, a default-constructed future was read).
// Message "Future Is Cancelled", result code async::eFutureIsCancelled. Immutable once thrown: safe to
// rethrow on any thread.

#include "kivcore/config/kiv_exception.h"
#include "kivcore/kivcore_export.h"

namespace kivcore::async {

class KIVCORE_EXPORT FutureIsCancelledException : public config::kiv_exception {
 public:
  FutureIsCancelledException();
  FutureIsCancelledException(const FutureIsCancelledException& other);
  FutureIsCancelledException& operator=(const FutureIsCancelledException& other);
  ~FutureIsCancelledException() override;
};

}  // namespace kivcore::async
