#pragma once
// Helpers shared by the threads suites: bounded waits, log capture and an in-flight counter.

#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "kivcore/logging/Logging.h"

namespace kivcore::threads::testing {

using namespace std::chrono_literals;

// Generous, so that sanitizer builds on a loaded machine never reach it; only a broken build waits it out.
inline constexpr std::chrono::milliseconds kPatience{5000};

inline bool WaitFor(const std::function<bool()>& condition, std::chrono::milliseconds timeout = kPatience) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!condition() && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(1ms);
  }
  return condition();
}

// Routes the log into memory while it lives.
class LogCapture {
 public:
  LogCapture() : mPrevious(logging::SetLogSink([this](const std::string& line) { Append(line); })) {}
  ~LogCapture() { logging::SetLogSink(mPrevious); }
  std::string Text() const {
    std::lock_guard lock(mMutex);
    return mText;
  }

 private:
  void Append(const std::string& line) {
    std::lock_guard lock(mMutex);
    mText += line + "\n";
  }
  mutable std::mutex mMutex;
  std::string mText;  // guarded by mMutex
  logging::LogSink mPrevious;
};

// Counts the tasks inside a region at once, and the most ever seen.
struct InFlightCounter {
  std::atomic<int> current{0};
  std::atomic<int> most{0};
  void Enter() {
    const int now = ++current;
    for (int seen = most.load(); now > seen && !most.compare_exchange_weak(seen, now);) {
    }
  }
  void Leave() { --current; }
};

}  // namespace kivcore::threads::testing
