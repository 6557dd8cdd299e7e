#pragma once
// Durations of one kind in logarithmic buckets, so that memory stays the same however many are recorded:
// kBucketsPerDecade buckets a decade from 100 ns to 1000 s, anything shorter or longer in one bucket on
// either side. Count, sum and the extremes are kept exactly beside the buckets. Not synchronized.

#include <chrono>
#include <cstdint>
#include <tuple>

#include "BoostHistogram.h"
#include "kivml/EvaluatorStatistics.h"

namespace kivml {

class DurationHistogram {
 public:
  using Duration = std::chrono::nanoseconds;

  // Gives buckets EvaluatorStatistics::kBucketRatio wide.
  static constexpr unsigned kBucketsPerDecade = 20;
  static constexpr double kShortestNanoseconds = 1e2;
  static constexpr double kLongestNanoseconds = 1e12;

  DurationHistogram();

  // A negative duration (a clock that went back) counts as 0.
  void Record(Duration duration);
  // Both must have the same buckets, which every DurationHistogram has.
  DurationHistogram& operator+=(const DurationHistogram& other);
  void Clear();

  uint64_t Count() const noexcept { return mCount; }
  Duration Sum() const noexcept { return mSum; }
  // The duration that a share `quantile` (0 to 1) of those recorded do not exceed: the middle of its bucket
  // (geometric), kept between the shortest and longest recorded. 0 when none was recorded.
  Duration Percentile(double quantile) const;
  EvaluatorStatistics::Durations Summarise() const;

 private:
  using Axis = boost::histogram::axis::regular<double, boost::histogram::axis::transform::log,
                                               boost::histogram::axis::null_type>;
  using Histogram = boost::histogram::histogram<std::tuple<Axis>, boost::histogram::dense_storage<uint64_t>>;

  Histogram mHistogram;
  uint64_t mCount = 0;
  Duration mSum{};
  Duration mMin = Duration::max();
  Duration mMax{};
};

}  // namespace kivml
