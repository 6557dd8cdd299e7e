#include "kivcore/async/FutureIsCancelledException.h"

#include "kivcore/config/ResultCodes.h"

namespace kivcore::async {

FutureIsCancelledException::FutureIsCancelledException()
    : kiv_exception("Future Is Cancelled", eFutureIsCancelled) {}
FutureIsCancelledException::FutureIsCancelledException(const FutureIsCancelledException& other) = default;
FutureIsCancelledException& FutureIsCancelledException::operator=(const FutureIsCancelledException& other) =
    default;
FutureIsCancelledException::~FutureIsCancelledException() = default;

}  // namespace kivcore::async
