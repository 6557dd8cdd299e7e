#pragma once

#include "kivcore/config/kiv_exception.h"

namespace kivml::ort {

// The GPU execution provider could not be set up; the evaluator then runs the model on the CPU. The
// result code is the failing platform call's, or kNoSuitableAdapter.
class DMLSetupException : public kivcore::kiv_exception {
 public:
  static constexpr int kNoSuitableAdapter = static_cast<int>(0xF865001Eu);

  DMLSetupException();
  explicit DMLSetupException(int result);
};

}  // namespace kivml::ort
