#pragma once
// A BenchRun as a file: how a child process of `kivml bench`, measuring the other spinning setting, hands
// its measurements to its parent. Every latency goes along, so the parent's report is the same as if it had
// measured them itself.

#include <filesystem>

#include "BenchRun.h"

namespace kivml::cli {

class BenchRunFile {
 public:
  // Throws ToolError when the file cannot be written.
  static void Write(const std::filesystem::path& file, const BenchRun& run);
  // Throws ToolError when the file cannot be read or does not hold a run.
  static BenchRun Read(const std::filesystem::path& file);
};

}  // namespace kivml::cli
