#pragma once

#include "kivcore/config/kiv_exception.h"
#include "kivml/kivml_export.h"

namespace kivml {

// Raised when binding or loading a model on an evaluator fails. Its message is fixed; the result code
// says why.
class KIVML_EXPORT SetModelException : public kivcore::kiv_exception {
 public:
  explicit SetModelException(int result);
};

}  // namespace kivml
