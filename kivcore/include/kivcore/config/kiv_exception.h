#pragma once
// The core exception: a fixed English message and an int result code. Derived exceptions build their
// text through FormatErrorMessage / FormatStringValue instead of overriding what().

#include <stdexcept>
#include <string>

#include "kivcore/kivcore_export.h"
#include "kivcore/utility/StringValue.h"

namespace kivcore::config {

class KIVCORE_EXPORT kiv_exception : public std::runtime_error {
 public:
  // An exception with an empty message.
  explicit kiv_exception(int result);
  kiv_exception(const char* message, int result);
  kiv_exception(const kiv_exception& other);
  kiv_exception& operator=(const kiv_exception& other);
  ~kiv_exception() override;

  int GetResult() const noexcept { return mResult; }
  const char* what() const noexcept override;

 protected:
  // Replaces the message.
  void FormatErrorMessage(const char* message);
  // Appends a context value to the message ("message (context)").
  void FormatStringValue(const utility::StringValue& value);

 private:
  std::string mMessage;
  int mResult;
};

}  // namespace kivcore::config

namespace kivcore {
using config::kiv_exception;
}
