#pragma once
// Thrown by RecursiveMutex::Lock when the wait ran out; code config::eLockTimeoutException. The message
// names the mutex, the waiting site, the time-out and the holder's site and thread.

#include <string>

#include "kivcore/config/kiv_exception.h"
#include "kivcore/kivcore_export.h"

namespace kivcore::threads {

class KIVCORE_EXPORT LockTimeoutException : public config::kiv_exception {
 public:
  explicit LockTimeoutException(const std::string& message);
};

}  // namespace kivcore::threads
