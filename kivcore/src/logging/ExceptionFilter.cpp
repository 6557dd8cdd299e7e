#include "kivcore/logging/ExceptionFilter.h"

#include <string>

#include "kivcore/logging/Logging.h"

namespace kivcore::utility::exceptions {

int InternalHiddenFilterWindowsSEHException(unsigned code, bool handle, const char* file, int line,
                                            const char* context) {
  std::string site = context != nullptr && *context != '\0' ? context : "unknown context";
  site += " at ";
  site += file != nullptr ? file : "?";
  site += ':';  // appended apart: GCC 12 at -O3 warns (falsely) about restrict on ":" + to_string
  site += std::to_string(line);
  logging::LogMachineException(code, site.c_str(), nullptr);
  return handle ? kExceptionExecuteHandler : kExceptionContinueSearch;
}

}  // namespace kivcore::utility::exceptions
