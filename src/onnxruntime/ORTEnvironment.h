#pragma once
// The one ONNX Runtime environment of the process, shared by every session of every evaluator. Sessions
// run on its global thread pools, which leave two processors to the host on machines with more than two.
//
// The pools' idle threads sleep unless the setting kivml.AllowSpinning is "true" when Create runs.
//
// ONNX Runtime's telemetry client would record usage behind the host's back: unless the host has set
// ORT_DISABLE_TELEMETRY itself (ORT_DISABLE_TELEMETRY=0 opts in), it is set to 1 before the environment
// is created.

#include <onnxruntime_c_api.h>

#include <cstdint>

namespace kivml::ort {

class ORTEnvironment {
 public:
  // Creates a new environment, replacing (and releasing) the previous one.
  static void Create();
  // The current environment; null before Create.
  static OrtEnv* Get();

  // Whether Create lets the global pools' idle threads spin.
  static bool SpinningAllowed();

  // Threads of each global pool on a machine with `processors` processors.
  static uint32_t GlobalPoolThreadCount(uint32_t processors) noexcept;
};

}  // namespace kivml::ort
