#include "LatencyStats.h"

#include <algorithm>
#include <cmath>
#include <numeric>

namespace kivml::cli {

LatencyStats::LatencyStats(std::vector<double> seconds) : mSorted(std::move(seconds)) {
  std::sort(mSorted.begin(), mSorted.end());
  if (!mSorted.empty()) {
    mMeanMs =
        std::accumulate(mSorted.begin(), mSorted.end(), 0.0) * 1e3 / static_cast<double>(mSorted.size());
  }
}

double LatencyStats::PercentileMs(double percent) const {
  if (mSorted.empty()) {
    return 0.0;
  }
  const double rank = std::ceil(percent / 100.0 * static_cast<double>(mSorted.size()));
  const size_t index =
      std::clamp<size_t>(static_cast<size_t>(std::max(rank, 1.0)) - 1, 0, mSorted.size() - 1);
  return mSorted[index] * 1e3;
}

LatencyStats LatencyStats::MergedWith(const LatencyStats& other) const {
  std::vector<double> seconds(mSorted);
  seconds.insert(seconds.end(), other.mSorted.begin(), other.mSorted.end());
  return LatencyStats(std::move(seconds));
}

}  // namespace kivml::cli
