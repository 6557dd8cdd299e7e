#pragma once

#include "kivcore/config/kiv_exception.h"
#include "kivcore/string/StringTypes.h"

namespace kivcore::config {

// Raised when an empty reference is dereferenced; the message names the type that was expected.
class KIVCORE_EXPORT NullPtrException : public kiv_exception {
 public:
  explicit NullPtrException(const u8string& what);
};

[[noreturn]] KIVCORE_EXPORT void DoThrowNullPtrException(const u8string& what);

}  // namespace kivcore::config
