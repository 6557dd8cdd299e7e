#pragma once
// Session settings in test failure messages, field by field.

#include <ostream>

#include "onnxruntime/SessionSettings.h"

namespace kivml::ort {

inline void PrintTo(const SessionSettings& settings, std::ostream* out) {
  *out << "{sharedThreadPools " << settings.sharedThreadPools << ", optimization " << settings.optimization
       << ", cpuMemoryArena " << settings.cpuMemoryArena << ", memoryPattern " << settings.memoryPattern
       << ", executionMode " << settings.executionMode << ", batchSize " << settings.batchSize
       << ", provider " << settings.provider << "}";
}

}  // namespace kivml::ort
