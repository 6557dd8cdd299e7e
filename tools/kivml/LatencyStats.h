#pragma once
// Summary of a set of latencies: mean and percentiles, in milliseconds.

#include <cstddef>
#include <vector>

namespace kivml::cli {

class LatencyStats {
 public:
  LatencyStats() = default;
  explicit LatencyStats(std::vector<double> seconds);

  size_t Count() const { return mSorted.size(); }
  double MeanMs() const { return mMeanMs; }
  const std::vector<double>& SortedSeconds() const { return mSorted; }
  // The nearest-rank percentile: the smallest latency that at least `percent`% of the samples do not
  // exceed; 0 without samples.
  double PercentileMs(double percent) const;
  // These samples and `other`'s together.
  LatencyStats MergedWith(const LatencyStats& other) const;

 private:
  std::vector<double> mSorted;  // seconds, ascending
  double mMeanMs = 0.0;
};

}  // namespace kivml::cli
