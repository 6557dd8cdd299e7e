#pragma once
// Appends the platform's GPU execution provider to session options. Throws DMLSetupException (or
// Ort::Exception) when the GPU cannot be used; the evaluator then runs the model on the CPU.

#include <onnxruntime_c_api.h>

namespace kivml::ort {

void AppendGPUExecutionProvider(OrtSessionOptions* options);

}  // namespace kivml::ort
