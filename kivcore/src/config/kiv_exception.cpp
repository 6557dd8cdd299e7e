#include "kivcore/config/kiv_exception.h"

namespace kivcore::config {

kiv_exception::kiv_exception(int result) : std::runtime_error(std::string()), mResult(result) {}

kiv_exception::kiv_exception(const char* message, int result)
    : std::runtime_error(std::string()), mMessage(message == nullptr ? "" : message), mResult(result) {}

kiv_exception::kiv_exception(const kiv_exception& other) = default;
kiv_exception& kiv_exception::operator=(const kiv_exception& other) = default;
kiv_exception::~kiv_exception() = default;

const char* kiv_exception::what() const noexcept {
  return mMessage.c_str();
}

void kiv_exception::FormatErrorMessage(const char* message) {
  mMessage = message == nullptr ? "" : message;
}

void kiv_exception::FormatStringValue(const utility::StringValue& value) {
  if (value.Text().empty()) {
    return;
  }
  mMessage += mMessage.empty() ? value.Text() : " (" + value.Text() + ")";
}

}  // namespace kivcore::config
