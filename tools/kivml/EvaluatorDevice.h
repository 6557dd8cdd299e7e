#pragma once
// Which device a started evaluator runs on. The public API has no query for it, so it is read from the
// library's trace lines while the model loads.

#include <mutex>
#include <string>

#include "kivcore/debug/Trace.h"

namespace kivml::cli {

struct EvaluatorDevice {
  bool gpu = false;
  std::string adapter;  // the GPU's name, when one was selected

  // "CPU", "GPU (name)", or the CPU with the reason a GPU request fell back.
  std::string Describe(bool gpuRequested) const;
};

// Watches the trace lines from construction to destruction; forwards every line the tool's own trace
// settings asked for and restores them afterwards.
class EvaluatorDeviceWatch {
 public:
  EvaluatorDeviceWatch();
  ~EvaluatorDeviceWatch();
  EvaluatorDeviceWatch(const EvaluatorDeviceWatch&) = delete;
  EvaluatorDeviceWatch& operator=(const EvaluatorDeviceWatch&) = delete;

  EvaluatorDevice Result(bool gpuRequested) const;

 private:
  void Record(int level, const std::string& category, const std::string& message);

  int mPreviousLevel = -1;
  kivcore::debug::TraceSink mPrevious;
  mutable std::mutex mMutex;
  std::string mAdapter;
  bool mFellBack = false;
};

}  // namespace kivml::cli
