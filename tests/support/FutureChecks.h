#pragma once
// Reading how a future ended, for tests: bounded waits, result codes and messages of failures.

#include <chrono>
#include <exception>
#include <string>

#include "kivcore/async/Future.h"
#include "kivcore/config/ExceptionResult.h"

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

template <class T>
std::string MessageOf(const kivcore::async::Future<T>& future) {
  if (!future.WaitFor(kFutureTimeout) || !future.HasException()) {
    return {};
  }
  try {
    std::rethrow_exception(future.GetException());
  } catch (const std::exception& exception) {
    return exception.what();
  } catch (...) {
    return "non-standard exception";
  }
}

}  // namespace kivml::testing
