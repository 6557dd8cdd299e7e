#include "ExitBarrier.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <mutex>
#include <vector>

namespace kivml {

namespace {

struct Runs {
  std::mutex mutex;
  std::condition_variable ended;
  uint64_t inFlight = 0;                       // guarded by mutex
  std::vector<kivcore::threads::Gate*> gates;  // guarded by mutex
  std::atomic<bool> exiting{false};
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
  runs.exiting.store(true, std::memory_order_release);
  for (kivcore::threads::Gate* gate : runs.gates) {
    gate->Open();
  }
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

ExitBarrier::GateWatch::GateWatch(kivcore::threads::Gate& gate) : mGate(gate) {
  Runs& runs = TheRuns();
  std::lock_guard lock(runs.mutex);
  runs.gates.push_back(&mGate);
}

ExitBarrier::GateWatch::~GateWatch() {
  Runs& runs = TheRuns();
  std::lock_guard lock(runs.mutex);
  std::erase(runs.gates, &mGate);
}

bool ExitBarrier::Exiting() noexcept {
  return TheRuns().exiting.load(std::memory_order_acquire);
}

void ExitBarrier::WaitAtExit() {
  std::atexit(WaitForRuns);
}

}  // namespace kivml
