#pragma once
// ONNX Runtime's own CPU provider, which every session has without asking: nothing is appended. Sessions
// on it allow concurrent Run and keep free dimensions free; nothing falls back from it.

#include "onnxruntime/ExecutionProvider.h"

namespace kivml::ort {

class CPUExecutionProvider final : public ExecutionProvider {
 public:
  const char* Name() const noexcept override { return "CPU"; }
  void Append(OrtSessionOptions* options, SessionSettings& settings) const override;
  bool IsSetupFailure(const std::exception_ptr& failure) const override;
  bool AllowsConcurrentRun() const noexcept override { return true; }
  bool NeedsFixedShapes() const noexcept override { return false; }
};

}  // namespace kivml::ort
