#include "onnxruntime/GPUExecutionProvider.h"

#include "onnxruntime/DMLSetupException.h"

namespace kivml::ort {

// No GPU execution provider is set up on this platform yet: a GPU request runs on the CPU.
void AppendGPUExecutionProvider(OrtSessionOptions* /*options*/) {
  throw DMLSetupException();
}

}  // namespace kivml::ort
