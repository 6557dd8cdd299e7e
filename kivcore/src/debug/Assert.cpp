#include "kivcore/debug/Assert.h"

#include <utility>

#include "kivcore/debug/Trace.h"
#include "kivcore/logging/Logging.h"
#include "utility/CallbackSlot.h"

namespace kivcore::debug {
namespace {

constinit thread_local int tDisableCount = 0;

// Empty means the default handler.
utility::CallbackSlot<AssertHandler>& GetHandlerSlot() {
  static auto* slot = new utility::CallbackSlot<AssertHandler>();  // asserts may fire from static destructors
  return *slot;
}

bool DefaultHandler(const AssertReport& report) {
  const std::string text = "Assertion failed: " + report.condition + " (" + report.message + ") at " +
                           report.file + ":" + std::to_string(report.line);
  Trace(0, "kivcore", text);
  logging::LogMessage(text);
  return IsDebuggerAttached();
}

}  // namespace

bool DoSimpleAssert(const char* file, int line, const char* condition, const char* message) {
  if (tDisableCount > 0) {
    return false;
  }
  try {
    AssertReport report{file != nullptr ? file : "", line, condition != nullptr ? condition : "",
                        message != nullptr ? message : ""};
    const std::shared_ptr<const AssertHandler> handler = GetHandlerSlot().Get();
    // Called outside the lock: a handler may assert or swap handlers itself.
    return handler ? (*handler)(report) : DefaultHandler(report);
  } catch (...) {
    // Reporting must never throw into the code being checked; an attached debugger still gets its break.
    return IsDebuggerAttached();
  }
}

AssertHandler SetAssertHandler(AssertHandler handler) {
  return GetHandlerSlot().Exchange(std::move(handler));
}

ScDisableAsserts::ScDisableAsserts() noexcept {
  ++tDisableCount;
}

ScDisableAsserts::~ScDisableAsserts() {
  --tDisableCount;
}

ScAssertRecorder::ScAssertRecorder() : mRecorded(std::make_shared<Recorded>()) {
  mPrevious = SetAssertHandler([recorded = mRecorded](const AssertReport& report) {
    std::lock_guard lock(recorded->mutex);
    recorded->reports.push_back(report);
    return false;
  });
}

ScAssertRecorder::~ScAssertRecorder() {
  SetAssertHandler(std::move(mPrevious));
}

std::vector<AssertReport> ScAssertRecorder::Reports() const {
  std::lock_guard lock(mRecorded->mutex);
  return mRecorded->reports;
}

size_t ScAssertRecorder::Count() const {
  std::lock_guard lock(mRecorded->mutex);
  return mRecorded->reports.size();
}

}  // namespace kivcore::debug
