#include "LocalEvaluator.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "gpu/AvailableVideoMemory.h"
#include "kivcore/config/ExceptionResult.h"
#include "kivcore/config/NestedException.h"
#include "kivcore/config/ResultCodes.h"
#include "kivcore/config/kiv_exception.h"
#include "kivcore/debug/Assert.h"
#include "kivcore/debug/DebugDatabase.h"
#include "kivcore/debug/ProfileRegion.h"
#include "kivcore/debug/Trace.h"
#include "kivcore/logging/Logging.h"
#include "kivcore/threads/ScopedLock.h"
#include "kivcore/utility/Indestructible.h"
#include "kivml/ResultCodes.h"
#include "kivml/SetModelException.h"
#include "utility/CalculateOptimalBatchSize.h"
#include "utility/ExitBarrier.h"
#include "utility/TraceCategory.h"
#include "utility/WholeNumberSetting.h"

namespace kivml {

using kivcore::threads::ScopedLock;
using utility::BatchContainer;
using utility::EvaluatorStatistician;

namespace {

// Completes Start's future with the load's result, or with eModelExecutionTerminated when the load never
// ran (the evaluator went away or its worker was shut down first).
struct LoadCompletion {
  kivcore::async::Promise<int> mPromise;
  ~LoadCompletion() { mPromise.SetValue(eModelExecutionTerminated); }
};

// The worker's statistics. Each evaluator has a worker thread of its own, so this is per evaluator. The
// factors stay 0: the estimate is the first measured batch time.
thread_local EvaluatorStatistician tWorkerStatistician;

constexpr const char* kPredictError = "kivml::LocalEvaluator::ProcessQueueThroughModelBatched PredictError";

// Read once per evaluator, when its worker starts; a value that is not a whole number keeps the default.
std::chrono::microseconds ReadIdleSpin() {
  const std::optional<uint64_t> microseconds = utility::ReadWholeNumberSetting("kivml.IdleSpinMicroseconds");
  if (!microseconds || *microseconds > std::numeric_limits<uint32_t>::max()) {
    return LocalEvaluator::kDefaultIdleSpin;
  }
  return std::chrono::microseconds(*microseconds);
}

// Read once per evaluator, when its worker starts: "false" or "0" turns the retry off.
bool ReadRetryRowsAlone() {
  const std::string value = kivcore::debug::DebugDatabase::Instance().GetEntry(
      std::string_view(LocalEvaluator::kRetryRowsAloneKey), std::string_view("true"));
  return value != "false" && value != "0";
}

}  // namespace

LocalEvaluator::LocalEvaluator(std::shared_ptr<const utility::BatchFillClock> clock)
    : mClock(std::move(clock)) {}

LocalEvaluator::~LocalEvaluator() {
  std::shared_ptr<kivcore::threads::AsyncThreadedExecutor> worker;
  {
    ScopedLock lock(GetMutex(), "kivml::LocalEvaluator::~LocalEvaluator");
    worker = std::move(mWorker);
    mTrigger.reset();
  }
  if (worker) {
    // Joins the worker; when the last reference went away on the worker itself, it is detached instead.
    worker->Shutdown();
  }
}

bool LocalEvaluator::Pause() {
  ScopedLock lock(GetMutex(), "kivml::LocalEvaluator::Pause");
  if (!mWorker) {
    return false;
  }
  mWorker->Pause();
  return true;
}

bool LocalEvaluator::Resume() {
  std::shared_ptr<kivcore::threads::QueueOnlyOnce> trigger;
  {
    ScopedLock lock(GetMutex(), "kivml::LocalEvaluator::Resume");
    if (!mWorker) {
      return false;
    }
    mWorker->Resume();
    trigger = mTrigger;
  }
  // A loop that stopped because of the pause left requests queued with no trigger pending for them.
  trigger->Trigger();
  return true;
}

LocalEvaluator::RequestQueue LocalEvaluator::PopUnlessPaused() {
  ScopedLock lock(GetMutex(), "kivml::LocalEvaluator::PopUnlessPaused");
  if (mWorker && mWorker->IsPaused()) {
    return {};
  }
  return PopQueuedFeatureRequests();
}

uint64_t LocalEvaluator::QueryAvailableVideoMemory() const {
  return gpu::QueryAvailableVideoMemory();
}

int LocalEvaluator::SetModel(kivcore::classref::InterfaceRef<IMLModel> model) {
  try {
    if (!model) {
      throw kivcore::kiv_exception("No model to set: the model reference is empty",
                                   kivcore::config::eNullPtrException);
    }
    const uint64_t allowance = QueryAvailableVideoMemory() / 10;
    const FeatureDescriptionVector descriptions = model->GetInputFeatureDescriptions();
    const size_t batchSize = descriptions.empty() ? 1
                                                  : utility::CalculateOptimalBatchSize(
                                                        static_cast<size_t>(allowance), descriptions);
    KIV_TRACE(kTraceCategory, 7,
              "Selected batch size for model: " + std::string(model->GetName().View()) + " --> " +
                  std::to_string(batchSize));

    ScopedLock lock(GetMutex(), "kivml::LocalEvaluator::SetModel");
    SetBatchSizeLocked(batchSize);
    BaseMLEvaluator::SetModel(std::move(model));
  } catch (...) {
    const std::exception_ptr cause = std::current_exception();
    std::rethrow_exception(kivcore::config::MakeNestedException(
        SetModelException(kivcore::config::ExtractResultFromException(cause)), cause));
  }
  return 0;
}

void LocalEvaluator::SetShouldUseBatching(bool shouldUseBatching) {
  ScopedLock lock(GetMutex(), "kivml::LocalEvaluator::SetShouldUseBatching");
  SetShouldUseBatchingLocked(shouldUseBatching);
}

kivcore::async::Future<int> LocalEvaluator::Start() {
  try {
    return StartWorker();
  } catch (...) {
    // No thread to start, no memory: the failure goes where the caller looks for the load's result.
    const std::exception_ptr exception = std::current_exception();
    kivcore::logging::LogException(exception, "kivml::LocalEvaluator::Start", nullptr);
    SetLoadFailure(exception);
    return kivcore::async::MakeReadyFuture(kivcore::config::ExtractResultFromException(exception));
  }
}

kivcore::async::Future<int> LocalEvaluator::StartWorker() {
  // The model's name is host code: ask for it before taking the lock.
  std::string name = GetEvaluatorTypeName();
  name += ':';
  if (const auto model = GetModel()) {
    name += model->GetName().View();
  }

  ScopedLock lock(GetMutex(), "kivml::LocalEvaluator::Start");
  if (mWorker) {
    return kivcore::async::MakeReadyFuture(static_cast<int>(kivcore::config::eInvalidArgument));
  }
  auto worker = kivcore::threads::CreateAsyncThreadedExecutor(
      name, 1, kivcore::threads::ThreadPriority::kNormal, {}, {}, kivcore::threads::ThreadAttributes());

  const std::weak_ptr<LocalEvaluator> weakSelf =
      std::dynamic_pointer_cast<LocalEvaluator>(GetSharedFromThis());
  const bool batched = GetShouldUseBatching();
  const std::chrono::microseconds idleSpin = ReadIdleSpin();
  const bool retryRowsAlone = ReadRetryRowsAlone();
  auto trigger = kivcore::threads::QueueOnlyOnce::Create(
      [weakSelf, batched, idleSpin, retryRowsAlone] {
        // Left after `self`: the run may end by destroying the evaluator.
        const utility::ExitBarrier::Scope inFlight;
        if (const auto self = weakSelf.lock()) {
          if (batched) {
            self->ProcessQueueThroughModelBatched(retryRowsAlone);
          } else {
            self->ProcessQueueThroughModel(idleSpin);
          }
        }
      },
      worker, 0, 0);

  auto completion = std::make_shared<LoadCompletion>();
  kivcore::async::Future<int> loaded = completion->mPromise.GetFuture();
  worker->Post(
      [weakSelf, trigger, completion] {
        const utility::ExitBarrier::Scope inFlight;
        const auto self = weakSelf.lock();
        if (!self) {
          return;  // the completion answers eModelExecutionTerminated
        }
        KIV_TRACE(kTraceCategory, 5, "kivml::LoadModel");
        int result = 0;
        try {
          result = self->LoadModel();
        } catch (...) {
          const std::exception_ptr exception = std::current_exception();
          kivcore::logging::LogException(exception, "kivml::LoadModel", nullptr);
          result = kivcore::config::ExtractResultFromException(exception);
          self->SetLoadFailure(exception);  // before the completion: whoever hears of it can read why
        }
        completion->mPromise.SetValue(result);
        trigger->Trigger();  // requests queued before Start had nobody to wake the worker
      },
      0);

  mWorker = std::move(worker);
  mTrigger = std::move(trigger);
  return loaded;
}

std::exception_ptr LocalEvaluator::GetLoadFailure() const {
  ScopedLock lock(GetMutex(), "kivml::LocalEvaluator::GetLoadFailure");
  return mLoadFailure;
}

void LocalEvaluator::SetLoadFailure(std::exception_ptr failure) {
  ScopedLock lock(GetMutex(), "kivml::LocalEvaluator::SetLoadFailure");
  mLoadFailure = std::move(failure);
}

void LocalEvaluator::MarkQueueHasPendingFeatures() {
  QueueExecutor();
}

void LocalEvaluator::QueueExecutor() {
  std::shared_ptr<kivcore::threads::QueueOnlyOnce> trigger;
  {
    ScopedLock lock(GetMutex(), "kivml::LocalEvaluator::QueueExecutor");
    trigger = mTrigger;
  }
  if (trigger) {
    trigger->Trigger();
  }
}

LocalEvaluator::RequestQueue LocalEvaluator::PopAfterIdleSpin(std::chrono::microseconds idleSpin) {
  RequestQueue requests = PopUnlessPaused();
  if (!requests.empty() || idleSpin.count() == 0) {
    return requests;
  }
  // Watches the gate, one atomic load, rather than the queue's lock, so producers are not held up. Yields
  // between looks: on a machine with fewer cores than busy threads the producer needs this one.
  const auto until = std::chrono::steady_clock::now() + idleSpin;
  while (!GetGate().IsOpen()) {
    if (std::chrono::steady_clock::now() >= until) {
      return requests;
    }
    std::this_thread::yield();
  }
  return PopUnlessPaused();  // empty if paused meanwhile: Resume triggers the loop again
}

void LocalEvaluator::ProcessQueueThroughModel(std::chrono::microseconds idleSpin) {
  static kivcore::utility::Indestructible<kivcore::debug::ProfileRegion> predictRegion(
      "kivmachinelearning.LocalEvaluator Predict");
  for (RequestQueue requests = PopUnlessPaused(); !requests.empty(); requests = PopAfterIdleSpin(idleSpin)) {
    for (; !requests.empty(); requests.pop_front()) {
      if (utility::ExitBarrier::Exiting()) {
        ErrorOutQueue(requests);  // the process goes away: answer now rather than drain the queue
        return;
      }
      auto& request = requests.front();
      if (request.mPromise.IsAbandoned()) {
        continue;  // nobody waits for the answer
      }
      try {
        utility::FeatureContainerVector outputs;
        {
          auto scope = predictRegion->Scope();
          outputs = Predict(request.mInputs);
        }
        request.mPromise.SetValue(std::move(outputs));
      } catch (...) {
        request.mPromise.SetException(std::current_exception());
      }
    }
  }
}

void LocalEvaluator::ProcessQueueThroughModelBatched(bool retryRowsAlone) {
  EvaluatorStatistician& statistician = tWorkerStatistician;
  const auto model = GetModel();
  const FeatureDescriptionVector descriptions =
      model ? model->GetInputFeatureDescriptions() : FeatureDescriptionVector();
  RequestQueue pending;  // taken from the queue but not yet in a batch
  for (;;) {
    if (utility::ExitBarrier::Exiting()) {
      ErrorOutQueue(pending);  // the process goes away: answer now rather than drain the queue
      return;
    }
    BatchContainer container(GetBatchSize(), descriptions);
    try {
      if (!FillBatchLoop(container, pending, statistician)) {
        return;
      }
    } catch (...) {
      // Padding or taking the queue failed: whoever was taken hears why, instead of a broken promise.
      const std::exception_ptr exception = std::current_exception();
      kivcore::logging::LogException(exception, "kivml::LocalEvaluator::FillBatchLoop", nullptr);
      for (auto& promise : container.GetBatchedPromises()) {
        promise.SetException(exception);
      }
      for (auto& request : pending) {
        request.mPromise.SetException(exception);
      }
      return;
    }
    BatchRun run;
    {
      EvaluatorStatistician::ScopedTimer timer(statistician, [this] { return mClock->Now(); });
      run = RunBatch(container);
    }
    // Running the same single row again would only fail again.
    const bool worthRetrying = container.Size() > 1 && !container.GetBatchedPromises().empty();
    if (!kivcore::ResultSucceeded(run.result) && retryRowsAlone && worthRetrying) {
      RetryRowsAlone(container, descriptions);
    } else {
      AnswerBatch(container, std::move(run));
    }
  }
}

LocalEvaluator::BatchRun LocalEvaluator::RunBatch(const BatchContainer& container) {
  static kivcore::utility::Indestructible<kivcore::debug::ProfileRegion> predictRegion(
      "kivmachinelearning.LocalEvaluator PredictBatched");
  BatchRun run;
  {
    auto scope = predictRegion->Scope();
    try {
      run.result = PredictBatched(container.GetBatchedFeatures(), run.outputs);
    } catch (...) {
      run.cause = std::current_exception();
      kivcore::logging::LogException(run.cause, "kivml::LocalEvaluator::Predict*", nullptr);
      run.result = kivcore::config::ExtractResultFromException(run.cause);
    }
  }
  if (const int result = run.result; !kivcore::ResultSucceeded(result)) {
    kivcore::logging::LogMessage("PredictBatched has a non-zero result code");
    KIV_ASSERT(kivcore::ResultSucceeded(result), "kivml::LocalEvaluator::ProcessQueueThroughModelBatched");
  }
  return run;
}

void LocalEvaluator::RetryRowsAlone(BatchContainer& failed, const FeatureDescriptionVector& descriptions) {
  // Padding, where the backend needs it, repeats the row itself: zero-filled rows can fail a model
  // (a division) that the row alone passes.
  const bool pad = !CanRunShortBatch();
  for (RequestQueue requests = failed.TakeRequests(); !requests.empty(); requests.pop_front()) {
    if (utility::ExitBarrier::Exiting()) {
      ErrorOutQueue(requests);
      return;
    }
    BatchContainer alone(failed.BatchSize(), descriptions);
    if (!alone.AddToBatch(std::move(requests.front()))) {
      continue;  // nobody waits for the answer any more
    }
    if (pad) {
      const utility::FeatureContainerVector row = alone.GetBatchedFeatures().front();
      alone.PadWith(row);
    }
    AnswerBatch(alone, RunBatch(alone));
  }
}

void LocalEvaluator::AnswerBatch(BatchContainer& container, BatchRun run) {
  auto& promises = container.GetBatchedPromises();
  if (!kivcore::ResultSucceeded(run.result)) {
    for (auto& promise : promises) {
      promise.SetException(
          kivcore::config::MakeNestedException(kivcore::kiv_exception(kPredictError, run.result), run.cause));
    }
    return;
  }
  // Rows past the real requests are padding: their outputs are dropped with `run`.
  const size_t answered = std::min(promises.size(), run.outputs.size());
  for (size_t row = 0; row < answered; ++row) {
    promises[row].SetValue(std::move(run.outputs[row]));
  }
  // A backend that returned fewer rows than it was given must not leave requests without an answer.
  for (size_t row = answered; row < promises.size(); ++row) {
    const std::string cause = "The backend returned " + std::to_string(run.outputs.size()) +
                              " output rows for a batch of " + std::to_string(container.Size());
    promises[row].SetException(kivcore::config::MakeNestedException(
        kivcore::kiv_exception(kPredictError, eInferenceFailure),
        std::make_exception_ptr(kivcore::kiv_exception(cause.c_str(), eInferenceFailure))));
  }
}

bool LocalEvaluator::CanRunShortBatch() const {
  return false;
}

void LocalEvaluator::CheckBatchRow(const utility::FeatureContainerVector& /*row*/,
                                   const utility::FeatureContainerVector* /*firstRow*/) {}

void LocalEvaluator::AdmitToBatch(BatchContainer& container, utility::QueuedFeatureRequest&& request) {
  if (!request.mPromise.IsAbandoned()) {
    const auto& rows = container.GetBatchedFeatures();
    try {
      CheckBatchRow(request.mInputs, rows.empty() ? nullptr : &rows.front());
    } catch (...) {
      request.mPromise.SetException(std::current_exception());
      return;
    }
  }
  container.AddToBatch(std::move(request));  // abandoned requests are dropped here
}

bool LocalEvaluator::FillBatchLoop(BatchContainer& container, RequestQueue& pending,
                                   const EvaluatorStatistician& statistician) {
  static kivcore::utility::Indestructible<kivcore::debug::ProfileRegion> fillRegion(
      "kivmachinelearning.LocalEvaluator FillBatchLoop");
  auto scope = fillRegion->Scope();
  const auto start = mClock->Now();
  const bool mustFill = MustFillBatch();
  for (;;) {
    if (pending.empty()) {
      // Once a batch has rows it runs, paused or not; an empty one waits for Resume.
      pending = container.IsEmpty() ? PopUnlessPaused() : PopQueuedFeatureRequests();
    }
    while (!container.IsFull() && !pending.empty()) {
      AdmitToBatch(container, std::move(pending.front()));
      pending.pop_front();
    }
    if (pending.empty() && container.IsEmpty()) {
      return false;
    }
    if (container.IsFull() || !mustFill) {
      break;
    }
    const auto missingRows =
        static_cast<std::chrono::milliseconds::rep>(container.BatchSize() - container.Size());
    const std::chrono::milliseconds wait = std::min(
        statistician.GetExpectedBatchInferenceTime(missingRows * kFillWaitPerMissingRow), kMaxFillWait);
    if (!mClock->WaitAtGate(GetGate(), mClock->Now() + wait) || utility::ExitBarrier::Exiting()) {
      break;  // nobody came in time, or nobody will: run what we have
    }
  }
  const size_t dummyRows = mustFill ? container.FinalizeBatch() : 0;
  KIV_TRACE(kTraceCategory, 7,
            "Filled batch of size " + std::to_string(container.Size()) + " in " +
                std::to_string(
                    std::chrono::duration_cast<std::chrono::milliseconds>(mClock->Now() - start).count()) +
                "ms" + " with " + std::to_string(dummyRows) + " dummy features");
  return true;
}

}  // namespace kivml
