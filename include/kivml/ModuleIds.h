#pragma once
// Ids of this library as a module of the host: the host's module registry keys the library by
// kKivmlModuleGuid, and its verification harness files the library's embedded suites under
// kKivmlSuitesGuid. Built when the library loads, like the evaluator's class id.

#include "kivcore/utility/Guid.h"
#include "kivml/kivml_export.h"

namespace kivml {

KIVML_EXPORT extern const kivcore::utility::Guid kKivmlModuleGuid;
KIVML_EXPORT extern const kivcore::utility::Guid kKivmlSuitesGuid;

}  // namespace kivml
