#include "kivml/CreatePreferredEvaluator.h"

#include <exception>
#include <string>

#include "BaseMLEvaluator.h"
#include "LocalEvaluator.h"
#include "kivcore/classref/ClassFactory.h"
#include "kivcore/config/ExceptionResult.h"
#include "kivcore/config/NestedException.h"
#include "kivcore/config/ResultCodes.h"
#include "kivcore/config/kiv_exception.h"
#include "kivcore/logging/Logging.h"
#include "kivml/IMLEvaluatorPrivate.h"
#include "kivml/ResultCodes.h"

namespace kivml {

namespace {

// Starts `evaluator` (bound and configured); the future completes with it once its model has loaded,
// or fails with the load's code, saying why and carrying the load's exception.
kivcore::async::Future<kivcore::classref::InterfaceRef<IMLEvaluator>> Started(
    const kivcore::classref::InterfaceRef<kivcore::classref::UnknownBase>& instance,
    IMLEvaluatorPrivate& evaluator, std::string modelName) {
  const kivcore::classref::InterfaceRef<IMLEvaluator> publicRef = instance.Query<IMLEvaluator>();
  return evaluator.Start().Then(
      [publicRef, modelName = std::move(modelName)](const kivcore::async::Future<int>& loaded) {
        const int loadResult = loaded.Get();
        if (kivcore::ResultSucceeded(loadResult)) {
          return publicRef;
        }
        const auto* local = dynamic_cast<const LocalEvaluator*>(publicRef.get());
        const std::exception_ptr failure = local ? local->GetLoadFailure() : nullptr;
        std::string message = "Loading the model '" + modelName + "' failed";
        if (failure) {
          try {
            std::rethrow_exception(failure);
          } catch (const std::exception& exception) {
            message += ": " + kivcore::config::DescribeWithCauses(exception);
          } catch (...) {
          }
        }
        std::rethrow_exception(kivcore::config::MakeNestedException(
            kivcore::kiv_exception(message.c_str(), loadResult), failure));
      });
}

}  // namespace

kivcore::async::Future<kivcore::classref::InterfaceRef<IMLEvaluator>> CreatePreferredEvaluator(
    kivcore::classref::InterfaceRef<IMLModel> model, BatchedInference batched) {
  return CreatePreferredEvaluator(std::move(model), EvaluatorOptions{batched});
}

kivcore::async::Future<kivcore::classref::InterfaceRef<IMLEvaluator>> CreatePreferredEvaluator(
    kivcore::classref::InterfaceRef<IMLModel> model, const EvaluatorOptions& options) {
  using EvaluatorRef = kivcore::classref::InterfaceRef<IMLEvaluator>;
  int result = eNoEvaluator;
  std::exception_ptr cause;
  try {
    const auto instance = kivcore::classref::CreateClassInstanceRef(kORTEvaluatorGuid);
    const auto evaluator = instance ? instance.Query<IMLEvaluatorPrivate>() : nullptr;
    if (evaluator) {
      std::string modelName;
      try {
        modelName = model ? std::string(model->GetName().View()) : std::string();
        evaluator->SetModel(model);
        evaluator->SetShouldUseBatching(options.batched == kBatchedInference);
        if (options.lanes) {
          if (auto* local = dynamic_cast<LocalEvaluator*>(evaluator.get())) {
            local->SetPredictionLanes(*options.lanes);
          }
        }
        result = 0;
      } catch (...) {
        cause = std::current_exception();
        kivcore::logging::LogException(cause, "kivml::CreatePreferredEvaluator", nullptr);
        result = kivcore::config::ExtractResultFromException(cause);
      }
      if (kivcore::ResultSucceeded(result)) {
        return Started(instance, *evaluator, std::move(modelName));
      }
    }
  } catch (...) {
    // Making the evaluator itself failed (its constructor, say): the future says so, not a throw.
    cause = std::current_exception();
    kivcore::logging::LogException(cause, "kivml::CreatePreferredEvaluator", nullptr);
    result = kivcore::config::ExtractResultFromException(cause);
  }
  // The message stays empty; whatever went wrong is attached as the cause.
  return kivcore::async::MakeExceptionalFuture<EvaluatorRef>(
      kivcore::config::MakeNestedException(kivcore::kiv_exception("", result), cause));
}

size_t GetEvaluatorBatchSize(const kivcore::classref::InterfaceRef<IMLEvaluator>& evaluator) {
  const auto* base = dynamic_cast<const BaseMLEvaluator*>(evaluator.get());
  if (!base) {
    return 0;
  }
  return base->GetShouldUseBatching() ? base->GetBatchSize() : 1;
}

size_t GetEvaluatorPredictionLanes(const kivcore::classref::InterfaceRef<IMLEvaluator>& evaluator) {
  const auto* local = dynamic_cast<const LocalEvaluator*>(evaluator.get());
  return local ? local->GetPredictionLanes() : 0;
}

}  // namespace kivml
