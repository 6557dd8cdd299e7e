#pragma once
// What the GPU providers share. Each adds itself through AppendProvider and throws DMLSetupException when
// the GPU cannot be used; that, and ONNX Runtime's own errors while the session is made, send the
// evaluator to the CPU. Sessions run one prediction at a time on fixed shapes: a GPU provider plans memory
// and may compile kernels per shape, so changing shapes cost more than padding.

#include "onnxruntime/ExecutionProvider.h"

namespace kivml::ort {

class GPUExecutionProvider : public ExecutionProvider {
 public:
  void Append(OrtSessionOptions* options, SessionSettings& settings) const final;
  bool IsSetupFailure(const std::exception_ptr& failure) const override;
  bool AllowsConcurrentRun() const noexcept override { return false; }
  bool NeedsFixedShapes() const noexcept override { return true; }

 protected:
  // Appends the provider itself, on the adapter the shared rule selects.
  virtual void AppendProvider(OrtSessionOptions* options) const = 0;
};

}  // namespace kivml::ort
