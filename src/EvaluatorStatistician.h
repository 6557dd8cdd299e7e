#pragma once
// Running statistics of prediction times (milliseconds), used to guess how long the next batch will take.
// Keeps the arithmetic mean and two exponential averages; a new sample weighs `firstFactor` in the one that
// estimates use. With factors of 0 the averages stay at the first sample while the mean moves on: the
// evaluator's worker relies on exactly that. Not synchronized: one instance per thread.

#include <chrono>
#include <cstdint>
#include <functional>

namespace kivml {

class EvaluatorStatistician {
 public:
  using Clock = std::chrono::steady_clock;

  // Records the time from its creation to its end, in whole milliseconds.
  class ScopedTimer {
   public:
    explicit ScopedTimer(EvaluatorStatistician& statistician,
                         std::function<Clock::time_point()> now = &Clock::now);
    ~ScopedTimer();
    ScopedTimer(const ScopedTimer&) = delete;
    ScopedTimer& operator=(const ScopedTimer&) = delete;

   private:
    EvaluatorStatistician& mStatistician;
    const std::function<Clock::time_point()> mNow;
    const Clock::time_point mStart;
  };

  // Samples recorded before estimates stop being the caller's fallback.
  static constexpr uint64_t kSamplesBeforeEstimate = 4;

  constexpr EvaluatorStatistician() noexcept = default;
  constexpr EvaluatorStatistician(double firstFactor, double secondFactor) noexcept
      : mFirstFactor(firstFactor), mSecondFactor(secondFactor) {}

  void RecordSample(std::chrono::milliseconds elapsed) noexcept { RecordSample(elapsed.count()); }
  void RecordSample(int64_t milliseconds) noexcept;

  // `fallback` until kSamplesBeforeEstimate samples are in, then the smoothed time rounded to whole
  // milliseconds.
  std::chrono::milliseconds GetExpectedBatchInferenceTime(std::chrono::milliseconds fallback) const noexcept;

  uint64_t GetSampleCount() const noexcept { return mSampleCount; }
  float GetMean() const noexcept { return mMean; }
  float GetSmoothedTime() const noexcept { return mSmoothedTime; }
  float GetSecondSmoothedTime() const noexcept { return mSecondSmoothedTime; }

 private:
  uint64_t mSampleCount = 0;
  float mMean = 0.0f;
  float mSmoothedTime = 0.0f;
  float mSecondSmoothedTime = 0.0f;
  double mFirstFactor = 0.0;
  double mSecondFactor = 0.0;
};

}  // namespace kivml
