#include "EvaluatorStatistician.h"

#include <cmath>

namespace kivml {

EvaluatorStatistician::ScopedTimer::ScopedTimer(EvaluatorStatistician& statistician,
                                                std::function<Clock::time_point()> now)
    : mStatistician(statistician), mNow(std::move(now)), mStart(mNow()) {}

EvaluatorStatistician::ScopedTimer::~ScopedTimer() {
  mStatistician.RecordSample(std::chrono::duration_cast<std::chrono::milliseconds>(mNow() - mStart));
}

void EvaluatorStatistician::RecordSample(int64_t milliseconds) noexcept {
  const auto sample = static_cast<float>(milliseconds);
  ++mSampleCount;
  if (mSampleCount == 1) {
    mMean = mSmoothedTime = mSecondSmoothedTime = sample;
    return;
  }
  mSecondSmoothedTime =
      static_cast<float>((1.0 - mSecondFactor) * mSecondSmoothedTime + sample * mSecondFactor);
  mSmoothedTime = static_cast<float>((1.0 - mFirstFactor) * mSmoothedTime + sample * mFirstFactor);
  mMean += (sample - mMean) / static_cast<float>(mSampleCount);
}

std::chrono::milliseconds EvaluatorStatistician::GetExpectedBatchInferenceTime(
    std::chrono::milliseconds fallback) const noexcept {
  if (mSampleCount < kSamplesBeforeEstimate) {
    return fallback;
  }
  return std::chrono::milliseconds(std::llround(mSmoothedTime));
}

}  // namespace kivml
