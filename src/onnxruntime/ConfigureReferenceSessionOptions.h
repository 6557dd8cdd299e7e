#pragma once
// For the kivml tool only, not part of the public API (no installed header declares it): the tool's raw
// ONNX Runtime reference makes its sessions with the options an evaluator's session gets, through this
// one exported function, so that the library's set-up code is the only copy. The tool binds the same
// ONNX Runtime API version as the library, so the options it creates can be handed over.

#include <onnxruntime_c_api.h>

#include <cstdint>

#include "kivml/kivml_export.h"
#include "onnxruntime/SessionSettings.h"

namespace kivml::tool {

// Gives `options` what an evaluator's session of `batchSize` gets: on the platform's GPU provider when
// `gpu`, else on the CPU. Returns what was set; throws as the library's set-up does (DMLSetupException
// when the GPU cannot be used, Ort::Exception).
KIVML_EXPORT ort::SessionSettings ConfigureReferenceSessionOptions(OrtSessionOptions* options,
                                                                   int64_t batchSize, bool gpu);

}  // namespace kivml::tool
