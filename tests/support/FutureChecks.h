#pragma once
// Reading how a future ended, for tests: bounded waits, result codes and messages of failures.

#include <chrono>
#include <exception>
#include <string>

#include "kivcore/async/Future.h"
#include "kivcore/config/ExceptionResult.h"
#include "kivcore/config/NestedException.h"

namespace kivml::testing {

inline constexpr std::chrono::seconds kFutureTimeout{20};

// 0 when the future holds a value; the failure's result code otherwise. Waits (bounded) for it first and
// returns 1 if it never completes.
template <class T>
int ResultOf(const kivcore::async::Future<T>& future) {
  if (!future.WaitFor(kFutureTimeout)) {
    return 1;
  }
  return future.HasValue() ? 0 : kivcore::config::ExtractResultFromException(future.GetException());
}

// `describe` applied to the failure a future ended with (waited for, bounded); empty when it has none.
template <class T, class Describe>
std::string DescribeFailureOf(const kivcore::async::Future<T>& future, Describe describe) {
  if (!future.WaitFor(kFutureTimeout) || !future.HasException()) {
    return {};
  }
  try {
    std::rethrow_exception(future.GetException());
  } catch (const std::exception& exception) {
    return describe(exception);
  } catch (...) {
    return "non-standard exception";
  }
}

template <class T>
std::string MessageOf(const kivcore::async::Future<T>& future) {
  return DescribeFailureOf(future,
                           [](const std::exception& exception) { return std::string(exception.what()); });
}

// The message of the cause nested in the failure (std::nested_exception); empty when there is none.
template <class T>
std::string CauseOf(const kivcore::async::Future<T>& future) {
  return DescribeFailureOf(future, [](const std::exception& exception) {
    try {
      std::rethrow_if_nested(exception);
    } catch (const std::exception& cause) {
      return std::string(cause.what());
    }
    return std::string();
  });
}

// The failure's message and those of every cause nested in it, joined.
template <class T>
std::string FullMessageOf(const kivcore::async::Future<T>& future) {
  return DescribeFailureOf(
      future, [](const std::exception& exception) { return kivcore::config::DescribeWithCauses(exception); });
}

}  // namespace kivml::testing
