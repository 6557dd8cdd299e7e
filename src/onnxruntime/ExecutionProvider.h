#pragma once
// An ONNX Runtime execution provider as the evaluator uses it: how to add it to session options, and what
// sessions on it allow. ExecutionProviders lists the providers a build offers; the evaluator asks the one
// its session runs on rather than knowing GPU and CPU apart.

#include <onnxruntime_c_api.h>

#include <exception>
#include <mutex>

#include "onnxruntime/SessionSettings.h"

namespace kivml::ort {

class ExecutionProvider {
 public:
  ExecutionProvider() = default;
  virtual ~ExecutionProvider() = default;
  ExecutionProvider(const ExecutionProvider&) = delete;
  ExecutionProvider& operator=(const ExecutionProvider&) = delete;

  // The name traces and session settings give it.
  virtual const char* Name() const noexcept = 0;

  // Adds the provider to `options`, after the options every session gets, recording in `settings` what it
  // changes. Throws the provider's set-up failure when it cannot be used on this machine.
  virtual void Append(OrtSessionOptions* options, SessionSettings& settings) const = 0;

  // Whether `failure`, thrown while a session on this provider was set up, means that the provider cannot
  // serve here (the evaluator then falls back to the CPU), rather than a fault to pass on.
  virtual bool IsSetupFailure(const std::exception_ptr& failure) const = 0;

  // Whether several threads may call Run on one session at once.
  virtual bool AllowsConcurrentRun() const noexcept = 0;

  // Whether inputs must keep the shapes the session was made for, so that batches are padded to full size.
  virtual bool NeedsFixedShapes() const noexcept = 0;

  // Makes process exit wait for the evaluators' workers, once per provider: called after one of its
  // sessions was made, as a provider builds static state of its own with its first session.
  void WaitForWorkersAtExit() const;

 private:
  mutable std::once_flag mExitWaitRegistered;
};

}  // namespace kivml::ort
