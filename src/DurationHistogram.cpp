#include "DurationHistogram.h"

#include <algorithm>
#include <cmath>

namespace kivml {

namespace {

constexpr unsigned kDecades = 10;  // kShortestNanoseconds to kLongestNanoseconds

}  // namespace

DurationHistogram::DurationHistogram()
    : mHistogram(boost::histogram::make_histogram_with(
          boost::histogram::dense_storage<uint64_t>(),
          Axis(kDecades * kBucketsPerDecade, kShortestNanoseconds, kLongestNanoseconds))) {}

void DurationHistogram::Record(Duration duration) {
  duration = std::max(duration, Duration::zero());
  mHistogram(static_cast<double>(duration.count()));  // 0 lands in the bucket below the shortest
  ++mCount;
  mSum += duration;
  mMin = std::min(mMin, duration);
  mMax = std::max(mMax, duration);
}

DurationHistogram& DurationHistogram::operator+=(const DurationHistogram& other) {
  mHistogram += other.mHistogram;
  mCount += other.mCount;
  mSum += other.mSum;
  mMin = std::min(mMin, other.mMin);
  mMax = std::max(mMax, other.mMax);
  return *this;
}

void DurationHistogram::Clear() {
  mHistogram.reset();
  mCount = 0;
  mSum = Duration::zero();
  mMin = Duration::max();
  mMax = Duration::zero();
}

DurationHistogram::Duration DurationHistogram::Percentile(double quantile) const {
  if (mCount == 0) {
    return Duration::zero();
  }
  // The rank of the duration asked for, 1-based: the smallest one with at least `quantile` at or below it.
  const auto rank = std::clamp<uint64_t>(
      static_cast<uint64_t>(std::ceil(std::clamp(quantile, 0.0, 1.0) * static_cast<double>(mCount))), 1,
      mCount);
  uint64_t seen = 0;
  for (auto&& bucket : boost::histogram::indexed(mHistogram, boost::histogram::coverage::all)) {
    seen += *bucket;
    if (seen < rank) {
      continue;
    }
    if (bucket.index() < 0) {
      return mMin;  // shorter than the buckets reach
    }
    if (bucket.index() >= static_cast<int>(mHistogram.axis().size())) {
      return mMax;  // longer than the buckets reach
    }
    const double middle = std::sqrt(bucket.bin().lower() * bucket.bin().upper());
    return std::clamp(Duration(std::llround(middle)), mMin, mMax);
  }
  return mMax;
}

EvaluatorStatistics::Durations DurationHistogram::Summarise() const {
  EvaluatorStatistics::Durations summary;
  summary.count = mCount;
  if (mCount == 0) {
    return summary;
  }
  summary.mean = mSum / static_cast<Duration::rep>(mCount);
  summary.p50 = Percentile(0.50);
  summary.p95 = Percentile(0.95);
  summary.p99 = Percentile(0.99);
  summary.max = mMax;
  return summary;
}

}  // namespace kivml
