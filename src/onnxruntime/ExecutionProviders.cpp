#include "onnxruntime/ExecutionProviders.h"

#include "kivcore/utility/Indestructible.h"
#include "onnxruntime/CPUExecutionProvider.h"

namespace kivml::ort {

const ExecutionProvider& ExecutionProviders::CPU() {
  static const kivcore::utility::Indestructible<CPUExecutionProvider> provider;
  return *provider;
}

}  // namespace kivml::ort
