#pragma once

namespace kivml {

// The trace category and profiler-region prefix of everything this library reports.
inline constexpr const char* kTraceCategory = "kivmachinelearning";

}  // namespace kivml
