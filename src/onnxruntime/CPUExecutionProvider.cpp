#include "onnxruntime/CPUExecutionProvider.h"

namespace kivml::ort {

void CPUExecutionProvider::Append(OrtSessionOptions* /*options*/, SessionSettings& /*settings*/) const {}

bool CPUExecutionProvider::IsSetupFailure(const std::exception_ptr& /*failure*/) const {
  return false;
}

}  // namespace kivml::ort
