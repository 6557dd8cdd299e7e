#pragma once
// What the library's session options hold, as plain values: ONNX Runtime has no getters for most options,
// so the code that sets them records each one here as it goes. The kivml tool's raw reference and an
// evaluator's session can then be compared setting by setting.

#include <onnxruntime_c_api.h>

#include <cstdint>
#include <string_view>

namespace kivml::ort {

struct SessionSettings {
  bool sharedThreadPools = false;  // per-session threads off: the environment's global pools run the session
  GraphOptimizationLevel optimization = ORT_DISABLE_ALL;
  bool cpuMemoryArena = false;
  bool memoryPattern = false;
  ExecutionMode executionMode = ORT_SEQUENTIAL;
  int64_t batchSize = 0;      // the value every dimension denoted "DATA_BATCH" is fixed at
  std::string_view provider;  // the execution provider's name: "CPU", "WebGPU", "DirectML"

  bool operator==(const SessionSettings&) const = default;
};

}  // namespace kivml::ort
