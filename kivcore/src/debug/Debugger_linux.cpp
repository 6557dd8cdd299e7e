#include <csignal>
#include <fstream>
#include <string>
#include <string_view>

#include "kivcore/debug/Assert.h"

namespace kivcore::debug {

bool IsDebuggerAttached() noexcept {
  try {
    // A tracer (gdb, lldb, strace) shows as a non-zero TracerPid.
    std::ifstream status("/proc/self/status");
    std::string line;
    constexpr std::string_view kTracer = "TracerPid:";
    while (std::getline(status, line)) {
      if (line.compare(0, kTracer.size(), kTracer) == 0) {
        const size_t digit = line.find_first_not_of(" \t", kTracer.size());
        return digit != std::string::npos && line[digit] != '0';
      }
    }
  } catch (...) {
  }
  return false;
}

void BreakIntoDebugger() noexcept {
  std::raise(SIGTRAP);
}

}  // namespace kivcore::debug
