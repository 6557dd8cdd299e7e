#include "onnxruntime/ConfigureReferenceSessionOptions.h"

#include "onnxruntime/ConfigureSessionOptions.h"
#include "onnxruntime/DMLSetupException.h"
#include "onnxruntime/ExecutionProviders.h"

namespace kivml::tool {

ort::SessionSettings ConfigureReferenceSessionOptions(OrtSessionOptions* options, int64_t batchSize,
                                                      bool gpu) {
  const ort::ExecutionProvider* provider =
      gpu ? ort::ExecutionProviders::PlatformGPU() : &ort::ExecutionProviders::CPU();
  if (provider == nullptr) {
    throw ort::DMLSetupException();
  }
  return ort::ConfigureSessionOptions(options, batchSize, *provider);
}

}  // namespace kivml::tool
