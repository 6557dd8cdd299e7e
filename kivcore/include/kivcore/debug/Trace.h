#pragma once
// Diagnostic tracing by category and level, off by default. A category is enabled for level L when
// L <= its maximum level; the category "*" gives the level of every category that has none of its own; a
// negative maximum disables. While nothing is enabled a check costs one relaxed atomic load.
//
// Levels can be set from outside with the environment variable KIVCORE_TRACE, read at first use:
//   KIVCORE_TRACE="kivmachinelearning=7,*=0"   (entries "category=level", separated by ',' or ';')
//
// Hot code traces through KIV_TRACE, which caches the enabled state of its call site (TraceSite) and
// builds the message only when the site is enabled.

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "kivcore/debug/TraceSite.h"
#include "kivcore/kivcore_export.h"
#include "kivcore/utility/Indestructible.h"

namespace kivcore::debug {

using TraceSink = std::function<void(int level, const std::string& category, const std::string& message)>;

// Whether `category` (NUL-terminated UTF-8) traces at `level`. With `refresh` true, KIVCORE_TRACE is
// first read again from the environment and its entries replace the levels of the categories it names
// (for hosts that change the environment at run time); pass false for the ordinary cheap check.
KIVCORE_EXPORT bool TraceEnabled(const unsigned char* category, int level, bool refresh);
KIVCORE_EXPORT bool TraceEnabled(std::string_view category, int level);

// Sends the message to the trace sink when the category is enabled for the level.
KIVCORE_EXPORT void Trace(int level, const std::string& category, const std::string& message);

// Moves on every change of the levels, so that callers can cache TraceEnabled answers.
KIVCORE_EXPORT uint64_t TraceChangeCount() noexcept;

// Sets the maximum level of `category` ("*": the default of every category without its own level).
KIVCORE_EXPORT void SetTraceLevel(std::string_view category, int maxLevel);
// Forgets every level, including "*": tracing is off again.
KIVCORE_EXPORT void ClearTraceLevels();
// Applies entries in the KIVCORE_TRACE format; returns how many were well formed.
KIVCORE_EXPORT int ApplyTraceSettings(std::string_view settings);

// Installs a process-wide sink and returns the previous one (an empty sink restores the default, which
// writes "[category:level] message" to standard error, with a line end unless the message ends with one).
// Sinks receive each message exactly as traced, line end included, from any thread, possibly at once,
// and outside the trace's locks.
KIVCORE_EXPORT TraceSink SetTraceSink(TraceSink sink);

}  // namespace kivcore::debug

// Traces `expression` (a std::string) under `category` at `level`; the expression is evaluated only when
// tracing is enabled. The call site keeps the category and level of its first pass; it is never destroyed,
// so that worker threads may still trace while the process exits.
#define KIV_TRACE(category, level, expression)                                                      \
  do {                                                                                              \
    static ::kivcore::utility::Indestructible<::kivcore::debug::TraceSite> kivTraceSite((category), \
                                                                                        (level));   \
    if (kivTraceSite->Enabled()) {                                                                  \
      ::kivcore::debug::Trace(kivTraceSite->Level(), kivTraceSite->Category(), (expression));       \
    }                                                                                               \
  } while (false)
