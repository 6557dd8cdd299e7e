#pragma once
// A closed-loop load: a number of client threads, each issuing one call and waiting for it before the
// next, until the calls have done a given number of requests between them. This is how hosts drive the
// library, so throughput and latency are measured under the load they would put on it.

#include <cstddef>
#include <functional>
#include <string>

#include "LatencyStats.h"

namespace kivml::cli {

class ProgressBar;

struct LoopResult {
  size_t requests = 0;  // done, at least the number asked for
  size_t calls = 0;
  double wallSeconds = 0.0;
  LatencyStats latency;  // per call

  // Adds a later run of the same load, as if the two had run back to back.
  void Append(const LoopResult& more) {
    requests += more.requests;
    calls += more.calls;
    wallSeconds += more.wallSeconds;
    latency = latency.MergedWith(more.latency);
  }

  double RequestsPerSecond() const {
    return wallSeconds > 0.0 ? static_cast<double>(requests) / wallSeconds : 0.0;
  }
};

class ClosedLoop {
 public:
  // One call, made on client thread `client`; it returns when the call's answer is in. Exceptions stop
  // the loop and pass to Run's caller.
  using Call = std::function<void(size_t client)>;

  ClosedLoop(size_t clients, ProgressBar& progress) : mClients(clients), mProgress(progress) {}

  // Runs until `requests` are done, each call doing `requestsPerCall` of them; the wall time runs from
  // the moment every client is ready to the last answer.
  LoopResult Run(const std::string& label, size_t requests, size_t requestsPerCall, const Call& call) const;

 private:
  size_t mClients;
  ProgressBar& mProgress;
};

}  // namespace kivml::cli
