#pragma once
// A context value for log and exception messages: plain text, or a (name, value) pair of UTF-8 strings
// that reads "name: value".

#include <string>

#include "kivcore/kivcore_export.h"
#include "kivcore/string/StringTypes.h"

namespace kivcore::utility {

class KIVCORE_EXPORT StringValue {
 public:
  StringValue() = default;
  StringValue(std::string text);  // NOLINT(google-explicit-constructor): contexts are written as literals
  StringValue(const char* text);  // NOLINT(google-explicit-constructor)
  StringValue(const u8string& name, const u8string& value);

  const std::string& Text() const noexcept { return mText; }

 private:
  std::string mText;
};

}  // namespace kivcore::utility
