#pragma once
// ONNX Runtime's DirectML provider: the GPU provider on Windows.

#include "onnxruntime/GPUExecutionProvider.h"

namespace kivml::ort {

class DirectMLExecutionProvider final : public GPUExecutionProvider {
 public:
  const char* Name() const noexcept override { return "DirectML"; }

 protected:
  void AppendProvider(OrtSessionOptions* options) const override;
};

}  // namespace kivml::ort
