#pragma once
// Filter for platform (machine) exceptions such as access violations, written portably so that the code
// calling it compiles everywhere; only Windows structured exception handling raises such codes. The
// return value follows the __except filter convention.

#include "kivcore/kivcore_export.h"

namespace kivcore::utility::exceptions {

// Filter results, equal to Windows' EXCEPTION_EXECUTE_HANDLER and EXCEPTION_CONTINUE_SEARCH.
inline constexpr int kExceptionExecuteHandler = 1;
inline constexpr int kExceptionContinueSearch = 0;

// Logs machine exception `code` with the site (`context` at file:line) and returns
// kExceptionExecuteHandler when `handle` is true (the __except block runs and the code carries on), or
// kExceptionContinueSearch to let the exception travel on to an outer handler.
KIVCORE_EXPORT int InternalHiddenFilterWindowsSEHException(unsigned code, bool handle, const char* file,
                                                           int line, const char* context);

}  // namespace kivcore::utility::exceptions
