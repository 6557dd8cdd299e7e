#include "kivml/SetModelException.h"

namespace kivml {

SetModelException::SetModelException(int result)
    : kiv_exception("Exception in kivml::IMLEvaluatorPrivate::SetModel", result) {}

}  // namespace kivml
