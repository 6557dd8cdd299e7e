#include "kivcore/utility/Indestructible.h"
#include "onnxruntime/ExecutionProviders.h"
#include "onnxruntime/WebGPUExecutionProvider.h"

namespace kivml::ort {

const ExecutionProvider* ExecutionProviders::PlatformGPU() {
  static const kivcore::utility::Indestructible<WebGPUExecutionProvider> provider;
  return &*provider;
}

}  // namespace kivml::ort
