#include "kivcore/utility/StringValue.h"

#include <utility>

#include "kivcore/string/StringConversions.h"

namespace kivcore::utility {

StringValue::StringValue(std::string text) : mText(std::move(text)) {}

StringValue::StringValue(const char* text) : mText(text == nullptr ? "" : text) {}

StringValue::StringValue(const u8string& name, const u8string& value)
    : mText(string::ToStdString(name) + ": " + string::ToStdString(value)) {}

}  // namespace kivcore::utility
