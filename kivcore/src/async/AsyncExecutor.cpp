#include "kivcore/async/AsyncExecutor.h"

namespace kivcore::async {

AsyncExecutor::~AsyncExecutor() = default;

}  // namespace kivcore::async
