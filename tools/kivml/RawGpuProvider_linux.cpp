#include "RawOrtSession.h"

namespace kivml::cli {

void AppendRawGpuProvider(Ort::SessionOptions& options) {
  const char* keys[] = {"dawnBackendType", "powerPreference"};
  const char* values[] = {"Vulkan", "high-performance"};
  Ort::ThrowOnError(Ort::GetApi().SessionOptionsAppendExecutionProvider(options, "WebGPU", keys, values, 2));
  options.DisableMemPattern();
}

}  // namespace kivml::cli
