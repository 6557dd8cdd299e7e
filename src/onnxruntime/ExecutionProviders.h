#pragma once
// The execution providers this build offers: the CPU, and the platform's GPU provider where there is one
// (chosen in ExecutionProviders_<platform>.cpp). A new provider is a class of its own and a line here or
// there. The providers are never destroyed: workers may still ask them while the process exits.

#include "onnxruntime/ExecutionProvider.h"

namespace kivml::ort {

class ExecutionProviders {
 public:
  static const ExecutionProvider& CPU();
  // Null where the platform has no GPU provider.
  static const ExecutionProvider* PlatformGPU();
};

}  // namespace kivml::ort
