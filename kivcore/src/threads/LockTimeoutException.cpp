#include "kivcore/threads/LockTimeoutException.h"

#include "kivcore/config/ResultCodes.h"

namespace kivcore::threads {

LockTimeoutException::LockTimeoutException(const std::string& message)
    : config::kiv_exception(message.c_str(), config::eLockTimeoutException) {}

}  // namespace kivcore::threads
