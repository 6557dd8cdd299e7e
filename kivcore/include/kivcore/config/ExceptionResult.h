#pragma once
// Turning a caught exception into a result code.
//
// A kiv_exception gives its own code. std::bad_alloc gives eBadAllocException. Other exceptions are
// offered to the registered translators (a backend registers one for its own exception type) and,
// when none claims them, give eUnexpectedException (0xF8650001). A null pointer gives 0 (no failure).

#include <exception>
#include <functional>
#include <optional>

#include "kivcore/kivcore_export.h"

namespace kivcore::config {

using ExceptionTranslator = std::function<std::optional<int>(const std::exception_ptr&)>;

KIVCORE_EXPORT int ExtractResultFromException(const std::exception_ptr& exception);

// Translators are asked in registration order; returns an id for UnregisterExceptionTranslator.
KIVCORE_EXPORT int RegisterExceptionTranslator(ExceptionTranslator translator);
KIVCORE_EXPORT void UnregisterExceptionTranslator(int id);

}  // namespace kivcore::config
