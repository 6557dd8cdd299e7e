#pragma once
// The library's entry point: an evaluator for a model, started and loaded, delivered through a future.
// The library's initializers must have run (kivcore::config::RunInitializers) before the first call.

#include <cstddef>

#include "kivcore/async/Future.h"
#include "kivcore/classref/InterfaceRef.h"
#include "kivcore/utility/Guid.h"
#include "kivml/BatchedInference.h"
#include "kivml/IMLEvaluator.h"
#include "kivml/IMLModel.h"
#include "kivml/kivml_export.h"

namespace kivml {

// Class id under which the ONNX Runtime evaluator is registered with the class factory.
KIVML_EXPORT extern const kivcore::utility::Guid kORTEvaluatorGuid;

// Makes the preferred evaluator for `model`, binds the model, sets batching (on for kBatchedInference)
// and starts it. The future yields the evaluator once the model has loaded, or fails with the result code
// of whatever went wrong: 0xA00F0001 when no evaluator class is registered, the model's binding or
// loading failure otherwise.
KIVML_EXPORT kivcore::async::Future<kivcore::classref::InterfaceRef<IMLEvaluator>> CreatePreferredEvaluator(
    kivcore::classref::InterfaceRef<IMLModel> model, BatchedInference batched);

// Rows per model run of a started evaluator from CreatePreferredEvaluator: its batch size when it batches,
// 1 when it runs requests singly; 0 for an evaluator this library did not make. Hosts use it to keep
// enough requests in flight to fill batches.
KIVML_EXPORT size_t GetEvaluatorBatchSize(const kivcore::classref::InterfaceRef<IMLEvaluator>& evaluator);

}  // namespace kivml
