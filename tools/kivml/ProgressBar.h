#pragma once
// A one-line progress bar on standard error, redrawn by a thread of its own a few times a second so that
// the threads being measured only bump a counter. Only drawn when standard error is a terminal: piped
// or redirected output never sees it.

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>

namespace kivml::cli {

class ProgressBar {
 public:
  ProgressBar();
  ~ProgressBar();
  ProgressBar(const ProgressBar&) = delete;
  ProgressBar& operator=(const ProgressBar&) = delete;

  bool Enabled() const { return mEnabled; }
  // Shows `label` with 0 of `total` done (ending a stage still shown).
  void Start(std::string label, size_t total);
  // Any thread.
  void Advance(size_t done) { mDone.fetch_add(done, std::memory_order_relaxed); }
  // Clears the line.
  void Finish();

 private:
  void Draw(bool final);

  const bool mEnabled;
  std::string mLabel;
  size_t mTotal = 0;
  size_t mWidest = 0;  // the longest line drawn, which the next draw must cover
  std::atomic<size_t> mDone{0};
  std::mutex mMutex;
  std::condition_variable_any mWake;
  std::jthread mDrawer;
};

}  // namespace kivml::cli
