#include <windows.h>

#include "kivcore/debug/Assert.h"

namespace kivcore::debug {

bool IsDebuggerAttached() noexcept {
  return ::IsDebuggerPresent() != FALSE;
}

void BreakIntoDebugger() noexcept {
  ::DebugBreak();
}

}  // namespace kivcore::debug
