#include "kivcore/async/FutureNotReadyException.h"

#include "kivcore/config/ResultCodes.h"

namespace kivcore::async {

FutureNotReadyException::FutureNotReadyException() : kiv_exception("Future: Not Ready", eFutureNotReady) {}
FutureNotReadyException::FutureNotReadyException(const FutureNotReadyException& other) = default;
FutureNotReadyException& FutureNotReadyException::operator=(const FutureNotReadyException& other) = default;
FutureNotReadyException::~FutureNotReadyException() = default;

}  // namespace kivcore::async
