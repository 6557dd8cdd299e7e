#include "kivcore/utility/Indestructible.h"
#include "onnxruntime/DirectMLExecutionProvider.h"
#include "onnxruntime/ExecutionProviders.h"

namespace kivml::ort {

const ExecutionProvider* ExecutionProviders::PlatformGPU() {
  static const kivcore::utility::Indestructible<DirectMLExecutionProvider> provider;
  return &*provider;
}

}  // namespace kivml::ort
