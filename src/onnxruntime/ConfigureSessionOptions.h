#pragma once
// The session options of every session the library makes, and of the kivml tool's raw reference.

#include <onnxruntime_c_api.h>

#include <cstdint>

#include "onnxruntime/ExecutionProvider.h"
#include "onnxruntime/SessionSettings.h"

namespace kivml::ort {

// Gives `options` the library's settings, in order: the environment's shared thread pools, every graph
// optimisation, the CPU memory arena and pattern, sequential execution, every dimension denoted
// "DATA_BATCH" fixed at `batchSize` (the only way the batch size reaches ONNX Runtime), then `provider`.
// Returns what was set. Throws Ort::Exception, or the provider's set-up failure.
SessionSettings ConfigureSessionOptions(OrtSessionOptions* options, int64_t batchSize,
                                        const ExecutionProvider& provider);

}  // namespace kivml::ort
