#include "kivcore/async/BrokenPromiseException.h"

#include "kivcore/config/ResultCodes.h"

namespace kivcore::async {

BrokenPromiseException::BrokenPromiseException() : kiv_exception("Future: Broken Promise", eBrokenPromise) {}
BrokenPromiseException::BrokenPromiseException(const BrokenPromiseException& other) = default;
BrokenPromiseException& BrokenPromiseException::operator=(const BrokenPromiseException& other) = default;
BrokenPromiseException::~BrokenPromiseException() = default;

}  // namespace kivcore::async
