#pragma once
// The runtime's log: one line per event, written to the log sink (standard error unless a host or a test
// installs its own). Used for caught exceptions that are not handed to anyone else.

#include <exception>
#include <functional>
#include <string>

#include "kivcore/kivcore_export.h"
#include "kivcore/logging/ExceptionFilter.h"
#include "kivcore/string/StringTypes.h"
#include "kivcore/utility/StringValue.h"

namespace kivcore::logging {

using LogSink = std::function<void(const std::string& line)>;

// Installs a process-wide sink and returns the previous one (an empty sink restores standard error). Sinks
// are called from any thread, possibly at once, and outside the log's lock, so a sink may log itself.
KIVCORE_EXPORT LogSink SetLogSink(LogSink sink);
KIVCORE_EXPORT void LogMessage(const std::string& line);

// Logs a caught exception under a context name: its type, result code (ExtractResultFromException) and
// message: "Exception in <context>: <type> 0x<code> <what()>" ("unknown exception" for types not derived
// from std::exception). `messageOut`, when not null, receives the logged text.
KIVCORE_EXPORT void LogException(const std::exception_ptr& exception, utility::StringValue context,
                                 u8string* messageOut);

// Logs a structured (machine) exception code raised by the platform: "Machine exception 0x%08X in <context>".
KIVCORE_EXPORT void LogMachineException(unsigned code, const char* context, u8string* messageOut);

}  // namespace kivcore::logging
