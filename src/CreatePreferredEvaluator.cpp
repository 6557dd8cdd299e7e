#include "kivml/CreatePreferredEvaluator.h"

#include "BaseMLEvaluator.h"
#include "kivcore/classref/ClassFactory.h"
#include "kivcore/config/ExceptionResult.h"
#include "kivcore/config/ResultCodes.h"
#include "kivcore/config/kiv_exception.h"
#include "kivcore/logging/Logging.h"
#include "kivml/IMLEvaluatorPrivate.h"

namespace kivml {

namespace {

// The code that stands when no evaluator can be made.
constexpr int eNoEvaluator = static_cast<int>(0xA00F0001u);

}  // namespace

kivcore::async::Future<kivcore::classref::InterfaceRef<IMLEvaluator>> CreatePreferredEvaluator(
    kivcore::classref::InterfaceRef<IMLModel> model, BatchedInference batched) {
  using EvaluatorRef = kivcore::classref::InterfaceRef<IMLEvaluator>;
  int result = eNoEvaluator;
  const auto instance = kivcore::classref::CreateClassInstanceRef(kORTEvaluatorGuid);
  const auto evaluator = instance ? instance.Query<IMLEvaluatorPrivate>() : nullptr;
  if (evaluator) {
    try {
      evaluator->SetModel(model);
      evaluator->SetShouldUseBatching(batched == kBatchedInference);
      result = 0;
    } catch (...) {
      const std::exception_ptr exception = std::current_exception();
      kivcore::logging::LogException(exception, "kivml::CreatePreferredEvaluator", nullptr);
      result = kivcore::config::ExtractResultFromException(exception);
    }
  }
  if (!kivcore::ResultSucceeded(result)) {
    return kivcore::async::MakeExceptionalFuture<EvaluatorRef>(
        std::make_exception_ptr(kivcore::kiv_exception("", result)));
  }
  const EvaluatorRef publicRef = instance.Query<IMLEvaluator>();
  // Completes once the model has loaded on the evaluator's worker, failing with the load's code.
  return evaluator->Start().Then([publicRef](const kivcore::async::Future<int>& loaded) {
    const int loadResult = loaded.Get();
    if (!kivcore::ResultSucceeded(loadResult)) {
      throw kivcore::kiv_exception("", loadResult);
    }
    return publicRef;
  });
}

size_t GetEvaluatorBatchSize(const kivcore::classref::InterfaceRef<IMLEvaluator>& evaluator) {
  const auto* base = dynamic_cast<const BaseMLEvaluator*>(evaluator.get());
  if (!base) {
    return 0;
  }
  return base->GetShouldUseBatching() ? base->GetBatchSize() : 1;
}

}  // namespace kivml
