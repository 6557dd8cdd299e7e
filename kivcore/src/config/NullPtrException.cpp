#include "kivcore/config/NullPtrException.h"

#include <string>

#include "kivcore/config/ResultCodes.h"
#include "kivcore/string/StringConversions.h"

namespace kivcore::config {

NullPtrException::NullPtrException(const u8string& what) : kiv_exception(eNullPtrException) {
  const std::string message = "Null pointer: " + string::ToStdString(what);
  FormatErrorMessage(message.c_str());
}

void DoThrowNullPtrException(const u8string& what) {
  throw NullPtrException(what);
}

}  // namespace kivcore::config
