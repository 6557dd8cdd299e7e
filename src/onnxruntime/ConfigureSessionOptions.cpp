#include "onnxruntime/ConfigureSessionOptions.h"

#include "onnxruntime/ORTApi.h"

namespace kivml::ort {

SessionSettings ConfigureSessionOptions(OrtSessionOptions* options, int64_t batchSize,
                                        const ExecutionProvider& provider) {
  const OrtApi& api = Api();
  SessionSettings settings;
  ThrowIfFailed(api.DisablePerSessionThreads(options));
  settings.sharedThreadPools = true;
  settings.optimization = ORT_ENABLE_ALL;
  ThrowIfFailed(api.SetSessionGraphOptimizationLevel(options, settings.optimization));
  ThrowIfFailed(api.EnableCpuMemArena(options));
  settings.cpuMemoryArena = true;
  ThrowIfFailed(api.EnableMemPattern(options));
  settings.memoryPattern = true;
  settings.executionMode = ORT_SEQUENTIAL;
  ThrowIfFailed(api.SetSessionExecutionMode(options, settings.executionMode));
  settings.batchSize = batchSize;
  ThrowIfFailed(api.AddFreeDimensionOverride(options, "DATA_BATCH", settings.batchSize));
  settings.provider = provider.Name();
  provider.Append(options, settings);
  return settings;
}

}  // namespace kivml::ort
