#include "EvaluatorDevice.h"

#include <algorithm>
#include <string_view>

#include "Settings.h"

namespace kivml::cli {

namespace {

constexpr std::string_view kCategory = "kivmachinelearning";
constexpr std::string_view kSelected = "Selected GPU: ";
constexpr std::string_view kFallBack = "Falling back to CPU ORT evaluation";
constexpr int kSelectionLevel = 7;

}  // namespace

std::string EvaluatorDevice::Describe(bool gpuRequested) const {
  if (gpu) {
    return "GPU (" + adapter + ")";
  }
  if (!gpuRequested) {
    return "CPU";
  }
  return adapter.empty() ? "CPU (asked for the GPU; no hardware adapter)"
                         : "CPU (asked for the GPU; set-up on " + adapter + " failed)";
}

EvaluatorDeviceWatch::EvaluatorDeviceWatch() {
  while (mPreviousLevel < kSelectionLevel && kivcore::debug::TraceEnabled(kCategory, mPreviousLevel + 1)) {
    ++mPreviousLevel;
  }
  mPrevious =
      kivcore::debug::SetTraceSink([this](int level, const std::string& category,
                                          const std::string& message) { Record(level, category, message); });
  kivcore::debug::SetTraceLevel(kCategory, std::max(mPreviousLevel, kSelectionLevel));
}

EvaluatorDeviceWatch::~EvaluatorDeviceWatch() {
  kivcore::debug::SetTraceLevel(kCategory, mPreviousLevel);
  kivcore::debug::SetTraceSink(mPrevious);
}

void EvaluatorDeviceWatch::Record(int level, const std::string& category, const std::string& message) {
  if (category == kCategory) {
    std::lock_guard lock(mMutex);
    if (message.starts_with(kSelected)) {
      mAdapter = message.substr(kSelected.size());
      if (!mAdapter.empty() && mAdapter.back() == '\n') {
        mAdapter.pop_back();  // the set-up's messages end their own line
      }
    } else if (message == kFallBack) {
      mFellBack = true;
    }
    if (level > mPreviousLevel) {
      return;  // enabled only for this watch
    }
  }
  if (mPrevious) {
    mPrevious(level, category, message);
  } else {
    WriteTraceLine(level, category, message);  // what the default sink would have written
  }
}

EvaluatorDevice EvaluatorDeviceWatch::Result(bool gpuRequested) const {
  std::lock_guard lock(mMutex);
  EvaluatorDevice device;
  device.gpu = gpuRequested && !mAdapter.empty() && !mFellBack;
  device.adapter = mAdapter;
  return device;
}

}  // namespace kivml::cli
