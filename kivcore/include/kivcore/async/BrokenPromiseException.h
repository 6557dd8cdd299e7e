#pragma once
// A promise was destroyed before it completed its future.
// Message "Future: Broken Promise", result code async::eBrokenPromise. Immutable once thrown: safe to rethrow
// on any thread.

#include "kivcore/config/kiv_exception.h"
#include "kivcore/kivcore_export.h"

namespace kivcore::async {

class KIVCORE_EXPORT BrokenPromiseException : public config::kiv_exception {
 public:
  BrokenPromiseException();
  BrokenPromiseException(const BrokenPromiseException& other);
  BrokenPromiseException& operator=(const BrokenPromiseException& other);
  ~BrokenPromiseException() override;
};

}  // namespace kivcore::async
