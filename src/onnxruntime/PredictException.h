#pragma once

#include "kivcore/config/kiv_exception.h"

namespace kivml::ort {

// A prediction that cannot run: no session, or an element type the conversion does not map. The
// message is fixed; the result code says which.
class PredictException : public kivcore::kiv_exception {
 public:
  explicit PredictException(int result);
};

}  // namespace kivml::ort
