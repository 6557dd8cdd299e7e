#include "ProgressBar.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <string_view>

#include "StandardErrorTerminal.h"

namespace kivml::cli {

namespace {

constexpr size_t kBarWidth = 30;
constexpr size_t kNarrowestBar = 10;
constexpr size_t kDefaultColumns = 80;  // when the terminal does not say
constexpr std::string_view kCut = "... ";
constexpr auto kRedrawPeriod = std::chrono::milliseconds(100);

}  // namespace

ProgressBar::ProgressBar() : mEnabled(StandardErrorTerminal::IsTerminal()) {}

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

std::string ProgressBar::Layout(const std::string& label, size_t done, size_t total, size_t columns) {
  const size_t room = columns > 0 ? columns - 1 : 0;
  const std::string count = std::to_string(done) + "/" + std::to_string(total);
  const size_t besideBar = label.size() + count.size() + 4;  // " [" and "] "
  if (besideBar + kNarrowestBar <= room) {
    const size_t width = std::min(kBarWidth, room - besideBar);
    const size_t filled = total > 0 ? std::min(done, total) * width / total : 0;
    return label + " [" + std::string(filled, '#') + std::string(width - filled, '.') + "] " + count;
  }
  std::string line = label + " " + count;
  if (line.size() > room && count.size() + kCut.size() < room) {
    line = label.substr(0, room - count.size() - kCut.size()) + std::string(kCut) + count;
  }
  return line.substr(0, room);
}

void ProgressBar::Draw(bool final) {
  const size_t columns = StandardErrorTerminal::Columns().value_or(kDefaultColumns);
  std::string line;
  if (!final) {
    line = Layout(mLabel, std::min(mDone.load(std::memory_order_relaxed), mTotal), mTotal, columns);
  }
  // "\r", the text, blanks up to the widest line drawn (within the width: the terminal may have narrowed),
  // "\r": the final draw leaves an empty line.
  mWidest = std::min(std::max(mWidest, line.size()), columns > 0 ? columns - 1 : 0);
  const std::string text = "\r" + line + std::string(mWidest - line.size(), ' ') + (final ? "\r" : "");
  std::fputs(text.c_str(), stderr);
  std::fflush(stderr);
}

}  // namespace kivml::cli
