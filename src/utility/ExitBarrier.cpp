#include "utility/ExitBarrier.h"

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>

namespace kivml::utility {

namespace {

struct Runs {
  std::mutex mutex;
  std::condition_variable ended;
  uint64_t inFlight = 0;
};

// Never destroyed: runs may end while the process exits.
Runs& TheRuns() {
  static Runs* const runs = new Runs();
  return *runs;
}

void WaitForRuns() {
  constexpr auto kLongestWait = std::chrono::seconds(5);
  Runs& runs = TheRuns();
  std::unique_lock lock(runs.mutex);
  runs.ended.wait_for(lock, kLongestWait, [&] { return runs.inFlight == 0; });
}

}  // namespace

ExitBarrier::Scope::Scope() {
  Runs& runs = TheRuns();
  std::lock_guard lock(runs.mutex);
  ++runs.inFlight;
}

ExitBarrier::Scope::~Scope() {
  Runs& runs = TheRuns();
  std::lock_guard lock(runs.mutex);
  --runs.inFlight;
  runs.ended.notify_all();
}

void ExitBarrier::WaitAtExit() {
  std::atexit(WaitForRuns);
}

}  // namespace kivml::utility
