#include "ProgressBar.h"

#include <algorithm>
#include <chrono>
#include <cstdio>

#ifdef _WIN32
#include <io.h>
#define KIVML_ISATTY _isatty
#define KIVML_FILENO _fileno
#else
#include <unistd.h>
#define KIVML_ISATTY isatty
#define KIVML_FILENO fileno
#endif

namespace kivml::cli {

namespace {

constexpr size_t kBarWidth = 30;
constexpr auto kRedrawPeriod = std::chrono::milliseconds(100);

}  // namespace

ProgressBar::ProgressBar() : mEnabled(KIVML_ISATTY(KIVML_FILENO(stderr)) != 0) {}

ProgressBar::~ProgressBar() {
  Finish();
}

void ProgressBar::Start(std::string label, size_t total) {
  Finish();
  if (!mEnabled) {
    return;
  }
  mLabel = std::move(label);
  mTotal = std::max<size_t>(total, 1);
  mDone.store(0, std::memory_order_relaxed);
  Draw(false);  // at once: a stage may end before the first redraw
  mDrawer = std::jthread([this](std::stop_token stop) {
    std::unique_lock lock(mMutex);
    while (!stop.stop_requested()) {
      // Returns early only when stopped.
      mWake.wait_for(lock, stop, kRedrawPeriod, [] { return false; });
      if (!stop.stop_requested()) {
        Draw(false);
      }
    }
  });
}

void ProgressBar::Finish() {
  if (!mDrawer.joinable()) {
    return;
  }
  mDrawer.request_stop();
  mDrawer.join();
  Draw(true);
}

void ProgressBar::Draw(bool final) {
  std::string line;
  if (!final) {
    const size_t done = std::min(mDone.load(std::memory_order_relaxed), mTotal);
    const size_t filled = done * kBarWidth / mTotal;
    line = mLabel + " [" + std::string(filled, '#') + std::string(kBarWidth - filled, '.') + "] " +
           std::to_string(done) + "/" + std::to_string(mTotal);
  }
  // "\r", the text, blanks up to the widest line drawn, "\r": the final draw leaves an empty line.
  mWidest = std::max(mWidest, line.size());
  const std::string text = "\r" + line + std::string(mWidest - line.size(), ' ') + (final ? "\r" : "");
  std::fputs(text.c_str(), stderr);
  std::fflush(stderr);
}

}  // namespace kivml::cli
