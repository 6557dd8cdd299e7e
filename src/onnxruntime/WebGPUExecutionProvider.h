#pragma once
// ONNX Runtime's WebGPU provider, which runs Dawn over Vulkan: the GPU provider on Linux.

#include "onnxruntime/GPUExecutionProvider.h"

namespace kivml::ort {

class WebGPUExecutionProvider final : public GPUExecutionProvider {
 public:
  const char* Name() const noexcept override { return "WebGPU"; }

 protected:
  void AppendProvider(OrtSessionOptions* options) const override;
};

}  // namespace kivml::ort
