#pragma once
// The library's entry point: an evaluator for a model, started and loaded, delivered through a future.
// The library's initializers must have run (kivcore::config::RunInitializers) before the first call.

#include <cstddef>

#include "kivcore/async/Future.h"
#include "kivcore/classref/InterfaceRef.h"
#include "kivcore/utility/Guid.h"
#include "kivml/BatchedInference.h"
#include "kivml/EvaluatorOptions.h"
#include "kivml/IMLEvaluator.h"
#include "kivml/IMLModel.h"
#include "kivml/kivml_export.h"

namespace kivml {

// Class id under which the ONNX Runtime evaluator is registered with the class factory.
KIVML_EXPORT extern const kivcore::utility::Guid kORTEvaluatorGuid;

// Makes the preferred evaluator for `model`, binds the model, sets batching (on for kBatchedInference)
// and starts it. Returns at once (the model loads on the evaluator's worker) and never throws: the future
// yields the evaluator once the model has loaded, or fails with a kiv_exception carrying the result code of
// whatever went wrong. A failed load says which model and why ("Loading the model 'm' failed: ..."). A
// failure before the load (eNoEvaluator when no evaluator class is registered, the evaluator's
// construction, binding the model, a null model) has an empty message, as it always had; the exception that
// caused it is nested in it (std::rethrow_if_nested, or kivcore::config::DescribeWithCauses). Keep the
// future: dropping it abandons the evaluator.
[[nodiscard]] KIVML_EXPORT kivcore::async::Future<kivcore::classref::InterfaceRef<IMLEvaluator>>
CreatePreferredEvaluator(kivcore::classref::InterfaceRef<IMLModel> model, BatchedInference batched);

// The same, with the host's choice of prediction lanes among its options.
[[nodiscard]] KIVML_EXPORT kivcore::async::Future<kivcore::classref::InterfaceRef<IMLEvaluator>>
CreatePreferredEvaluator(kivcore::classref::InterfaceRef<IMLModel> model, const EvaluatorOptions& options);

// Rows per model run of a started evaluator from CreatePreferredEvaluator: its batch size when it batches,
// 1 when it runs requests singly; 0 for an evaluator this library did not make. Hosts use it to keep
// enough requests in flight to fill batches.
KIVML_EXPORT size_t GetEvaluatorBatchSize(const kivcore::classref::InterfaceRef<IMLEvaluator>& evaluator);

// Predictions a started evaluator from CreatePreferredEvaluator runs at once (its lanes, as the machine
// and its session allow); 0 for an evaluator this library did not make.
KIVML_EXPORT size_t
GetEvaluatorPredictionLanes(const kivcore::classref::InterfaceRef<IMLEvaluator>& evaluator);

}  // namespace kivml
