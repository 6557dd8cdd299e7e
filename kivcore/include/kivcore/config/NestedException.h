#pragma once
// Exceptions that carry their cause. The result is `exception`'s own type joined with
// std::nested_exception (std::throw_with_nested): handlers that catch `exception`'s type and read its
// message and result code see no difference, and std::rethrow_if_nested brings the cause back.

#include <exception>
#include <string>
#include <utility>

namespace kivcore::config {

// `exception` with `cause` nested in it; `exception` alone when there is no cause.
template <class Exception>
std::exception_ptr MakeNestedException(Exception exception, const std::exception_ptr& cause) {
  if (!cause) {
    return std::make_exception_ptr(std::move(exception));
  }
  try {
    std::rethrow_exception(cause);
  } catch (...) {
    try {
      std::throw_with_nested(std::move(exception));
    } catch (...) {
      return std::current_exception();
    }
  }
  return cause;  // not reached: both calls above throw
}

// The messages of `exception` and of every cause nested in it, outermost first, joined by ": " (an
// empty message adds nothing).
inline std::string DescribeWithCauses(const std::exception& exception) {
  std::string text = exception.what();
  const auto append = [&text](const std::string& cause) { text += (text.empty() ? "" : ": ") + cause; };
  try {
    std::rethrow_if_nested(exception);
  } catch (const std::exception& cause) {
    append(DescribeWithCauses(cause));
  } catch (...) {
    append("(an exception of unknown type)");
  }
  return text;
}

}  // namespace kivcore::config
