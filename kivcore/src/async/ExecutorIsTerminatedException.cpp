#include "kivcore/async/ExecutorIsTerminatedException.h"

#include "kivcore/config/ResultCodes.h"

namespace kivcore::async {

ExecutorIsTerminatedException::ExecutorIsTerminatedException()
    : kiv_exception("Executor Is Terminated", eExecutorIsTerminated) {}
ExecutorIsTerminatedException::ExecutorIsTerminatedException(const ExecutorIsTerminatedException& other) =
    default;
ExecutorIsTerminatedException& ExecutorIsTerminatedException::operator=(
    const ExecutorIsTerminatedException& other) = default;
ExecutorIsTerminatedException::~ExecutorIsTerminatedException() = default;

}  // namespace kivcore::async
