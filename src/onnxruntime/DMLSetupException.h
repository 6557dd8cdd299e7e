#pragma once

#include "kivcore/config/kiv_exception.h"
#include "kivml/ResultCodes.h"

namespace kivml::ort {

// A GPU execution provider could not be set up, whichever provider it is (the name stays, as hosts catch
// it by name); the evaluator then runs the model on the CPU. The result code is the failing platform
// call's, MakeGpuProviderRejected(ONNX Runtime's error code) when the provider refused, or
// eNoSuitableAdapter (kivml/ResultCodes.h).
class DMLSetupException : public kivcore::kiv_exception {
 public:
  static constexpr int kNoSuitableAdapter = eNoSuitableAdapter;

  DMLSetupException();
  explicit DMLSetupException(int result);
};

}  // namespace kivml::ort
