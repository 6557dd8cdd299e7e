#include "kivml/EvaluatorStatistics.h"

#include "BaseMLEvaluator.h"

namespace kivml {

EvaluatorStatistics GetEvaluatorStatistics(const kivcore::classref::InterfaceRef<IMLEvaluator>& evaluator) {
  const auto* base = dynamic_cast<const BaseMLEvaluator*>(evaluator.get());
  return base ? base->GetStatistics() : EvaluatorStatistics();
}

bool ResetEvaluatorStatistics(const kivcore::classref::InterfaceRef<IMLEvaluator>& evaluator) {
  auto* base = dynamic_cast<BaseMLEvaluator*>(evaluator.get());
  if (!base) {
    return false;
  }
  base->ResetStatistics();
  return true;
}

}  // namespace kivml
