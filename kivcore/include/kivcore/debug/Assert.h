#pragma once
// Debug assertions that report and carry on (they never abort). A report goes to the assert handler
// unless asserts are silenced on the current thread by an ScDisableAsserts in scope. The default handler
// writes the report to the trace (category "kivcore", level 0) and to the log, and asks for a break only
// when a debugger is attached. Tests observe assertions with ScAssertRecorder.

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "kivcore/kivcore_export.h"

namespace kivcore::debug {

struct AssertReport {
  std::string file;
  int line = 0;
  std::string condition;
  std::string message;
};

// Returns true when the caller should break into a debugger (callers then break only if one is attached).
using AssertHandler = std::function<bool(const AssertReport&)>;

KIVCORE_EXPORT bool DoSimpleAssert(const char* file, int line, const char* condition, const char* message);
KIVCORE_EXPORT bool IsDebuggerAttached() noexcept;
KIVCORE_EXPORT void BreakIntoDebugger() noexcept;

// Installs a process-wide handler and returns the previous one (an empty handler restores the default).
KIVCORE_EXPORT AssertHandler SetAssertHandler(AssertHandler handler);

// Silences assertions raised on this thread while it lives. Nestable.
class KIVCORE_EXPORT ScDisableAsserts {
 public:
  ScDisableAsserts() noexcept;
  ~ScDisableAsserts();
  ScDisableAsserts(const ScDisableAsserts&) = delete;
  ScDisableAsserts& operator=(const ScDisableAsserts&) = delete;
};

// Records every assertion reported on any thread while it lives, instead of the installed handler, which
// it puts back on destruction (recorders nest when destroyed in reverse order).
class KIVCORE_EXPORT ScAssertRecorder {
 public:
  ScAssertRecorder();
  ~ScAssertRecorder();
  ScAssertRecorder(const ScAssertRecorder&) = delete;
  ScAssertRecorder& operator=(const ScAssertRecorder&) = delete;

  std::vector<AssertReport> Reports() const;
  size_t Count() const;

 private:
  // Shared with the installed handler, which another thread may still be running while this dies.
  struct Recorded {
    mutable std::mutex mutex;
    std::vector<AssertReport> reports;  // guarded by mutex
  };

  std::shared_ptr<Recorded> mRecorded;
  AssertHandler mPrevious;  // set once by the constructor, used by the destructor
};

}  // namespace kivcore::debug

// Reports `condition` failing, with `message`; breaks into an attached debugger when the handler asks.
#define KIV_ASSERT(condition, message)                                                               \
  do {                                                                                               \
    if (!(condition) && ::kivcore::debug::DoSimpleAssert(__FILE__, __LINE__, #condition, message) && \
        ::kivcore::debug::IsDebuggerAttached()) {                                                    \
      ::kivcore::debug::BreakIntoDebugger();                                                         \
    }                                                                                                \
  } while (false)
