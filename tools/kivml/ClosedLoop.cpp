#include "ClosedLoop.h"

#include <atomic>
#include <chrono>
#include <exception>
#include <mutex>
#include <thread>
#include <vector>

#include "ProgressBar.h"
#include "kivcore/threads/Latch.h"

namespace kivml::cli {

LoopResult ClosedLoop::Run(const std::string& label, size_t requests, size_t requestsPerCall,
                           const Call& call) const {
  using Clock = std::chrono::steady_clock;
  std::atomic<size_t> claimed{0};
  std::atomic<bool> failed{false};
  std::exception_ptr failure;
  std::mutex failureMutex;
  std::vector<std::vector<double>> latencies(mClients);
  kivcore::threads::Latch ready(static_cast<std::ptrdiff_t>(mClients) + 1);
  kivcore::threads::Latch go(1);

  mProgress.Start(label, requests);
  std::vector<std::jthread> clients;
  clients.reserve(mClients);
  for (size_t client = 0; client < mClients; ++client) {
    clients.emplace_back([&, client] {
      ready.CountDown();
      go.Wait();
      // A call claims its requests before it starts, so that exactly enough calls are made.
      while (!failed.load(std::memory_order_relaxed) &&
             claimed.fetch_add(requestsPerCall, std::memory_order_relaxed) < requests) {
        const auto start = Clock::now();
        try {
          call(client);
        } catch (...) {
          const std::lock_guard lock(failureMutex);
          if (!failure) {
            failure = std::current_exception();
          }
          failed.store(true);
          return;
        }
        latencies[client].push_back(std::chrono::duration<double>(Clock::now() - start).count());
        mProgress.Advance(requestsPerCall);
      }
    });
  }
  ready.ArriveAndWait();
  const auto start = Clock::now();
  go.CountDown();
  clients.clear();  // joins
  const auto end = Clock::now();
  mProgress.Finish();
  if (failure) {
    std::rethrow_exception(failure);
  }

  std::vector<double> all;
  for (const auto& own : latencies) {
    all.insert(all.end(), own.begin(), own.end());
  }
  LoopResult result;
  result.calls = all.size();
  result.requests = result.calls * requestsPerCall;
  result.wallSeconds = std::chrono::duration<double>(end - start).count();
  result.latency = LatencyStats(std::move(all));
  return result;
}

}  // namespace kivml::cli
