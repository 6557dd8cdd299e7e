#pragma once
// An evaluator's statistics once they account for every request it queued: a lane records what became of
// a request just after completing its future, so a snapshot taken as the last answer arrives could miss it.

#include "kivml/EvaluatorStatistics.h"

namespace kivml::cli {

// Waits a second at most; after that, the statistics as they stand.
EvaluatorStatistics ReadSettledStatistics(const kivcore::classref::InterfaceRef<IMLEvaluator>& evaluator);

}  // namespace kivml::cli
