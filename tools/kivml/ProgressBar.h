#pragma once
// A one-line progress bar on standard error, redrawn by a thread of its own a few times a second so that
// the threads being measured only bump a counter. Only drawn when standard error is a terminal: piped
// or redirected output never sees it. Each line fits the terminal's width as it is at that moment: a
// line that wrapped would scroll the screen at every redraw instead of overwriting itself.

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

  // "label [####......] done/total" in fewer than `columns` characters (the last column is left free, where
  // some terminals wrap at once): the bar narrows, then goes, then the label is cut.
  static std::string Layout(const std::string& label, size_t done, size_t total, size_t columns);

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
