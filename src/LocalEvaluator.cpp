#include "LocalEvaluator.h"

#include <algorithm>
#include <exception>
#include <limits>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include "CalculateOptimalBatchSize.h"
#include "ExitBarrier.h"
#include "WholeNumberSetting.h"
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
#include "kivcore/utility/CPUCount.h"
#include "kivcore/utility/Indestructible.h"
#include "kivml/EvaluatorOptions.h"
#include "kivml/ResultCodes.h"
#include "kivml/SetModelException.h"
#include "kivml/Settings.h"
#include "utility/TraceCategory.h"

namespace kivml {

using kivcore::threads::ScopedLock;

namespace {

// Completes Start's future with the load's result, or with eModelExecutionTerminated when the load never
// ran (the evaluator went away or its worker was shut down first).
struct LoadCompletion {
  kivcore::async::Promise<int> mPromise;
  ~LoadCompletion() { mPromise.SetValue(eModelExecutionTerminated); }
};

// The worker's statistics. Each evaluator has a worker thread of its own, so this is per evaluator; lanes
// keep theirs in their Lanes. The factors stay 0: the estimate is the first measured batch time.
thread_local EvaluatorStatistician tWorkerStatistician;

constexpr const char* kPredictError = "kivml::LocalEvaluator::ProcessQueueThroughModelBatched PredictError";

// Read once per evaluator, when its worker starts; a value that is not a whole number keeps the default.
std::chrono::microseconds ReadIdleSpin() {
  const std::optional<uint64_t> microseconds = ReadWholeNumberSetting(settings::kIdleSpinMicroseconds.key);
  if (!microseconds || *microseconds > std::numeric_limits<uint32_t>::max()) {
    return LocalEvaluator::kDefaultIdleSpin;
  }
  return std::chrono::microseconds(*microseconds);
}

// The result code a failed request is counted under: its exception's, unless that one claims success.
int FailureResult(const std::exception_ptr& failure) {
  const int result = kivcore::config::ExtractResultFromException(failure);
  return kivcore::ResultSucceeded(result) ? kivcore::config::eUnexpectedException : result;
}

// Read once per evaluator, when its worker starts: "false" or "0" turns the retry off.
bool ReadRetryRowsAlone() {
  const std::string value = kivcore::debug::DebugDatabase::Instance().GetEntry(
      settings::kRetryFailedBatchRows.key, settings::kRetryFailedBatchRows.defaultValue);
  return value != "false" && value != "0";
}

}  // namespace

thread_local LocalEvaluator::LaneOfThread LocalEvaluator::tLane;

// A lane's turn at filling a full batch, for as long as it lives; no turn is taken without lanes.
class LocalEvaluator::FillTurn {
 public:
  explicit FillTurn(Lanes* lanes) : mLanes(lanes) {
    if (mLanes != nullptr) {
      std::unique_lock lock(mLanes->fillMutex);
      const uint64_t ticket = mLanes->fillTickets++;
      mLanes->fillTurnEnded.wait(lock, [&] { return mLanes->fillServing == ticket; });
    }
  }
  ~FillTurn() {
    if (mLanes != nullptr) {
      {
        std::lock_guard lock(mLanes->fillMutex);
        ++mLanes->fillServing;
      }
      mLanes->fillTurnEnded.notify_all();
    }
  }
  FillTurn(const FillTurn&) = delete;
  FillTurn& operator=(const FillTurn&) = delete;

 private:
  Lanes* const mLanes;
};

LocalEvaluator::LocalEvaluator(std::shared_ptr<const BatchFillClock> clock)
    : BaseMLEvaluator(std::move(clock)) {}

LocalEvaluator::~LocalEvaluator() {
  std::shared_ptr<kivcore::threads::AsyncThreadedExecutor> worker;
  {
    ScopedLock lock(GetMutex(), "kivml::LocalEvaluator::~LocalEvaluator");
    worker = std::move(mWorker);
    mLanes.reset();
  }
  if (worker) {
    // Joins the workers; when the last reference went away on a worker itself, that one is detached.
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
  std::shared_ptr<Lanes> lanes;
  {
    ScopedLock lock(GetMutex(), "kivml::LocalEvaluator::Resume");
    if (!mWorker) {
      return false;
    }
    mWorker->Resume();
    lanes = mLanes;
  }
  // A loop that stopped because of the pause left requests queued with no trigger pending for them.
  WakeLanes(*lanes);
  return true;
}

LocalEvaluator::RequestQueue LocalEvaluator::PopUnlessPaused(size_t most, bool evenIfPaused) {
  std::shared_ptr<Lanes> lanes;
  RequestQueue taken;
  {
    ScopedLock lock(GetMutex(), "kivml::LocalEvaluator::PopUnlessPaused");
    if (!evenIfPaused && mWorker && mWorker->IsPaused()) {
      return {};
    }
    if (most == std::numeric_limits<size_t>::max()) {
      return PopQueuedFeatureRequests();
    }
    size_t left = 0;
    taken = PopQueuedFeatureRequests(most, left);
    if (left != 0) {
      lanes = mLanes;
    }
  }
  if (lanes) {
    WakeIdleLane(*lanes);
  }
  return taken;
}

size_t LocalEvaluator::TakeLimit(size_t perLane) const {
  return tLane.state != nullptr ? perLane : std::numeric_limits<size_t>::max();
}

void LocalEvaluator::SetLaneWaiting(bool waiting) const {
  if (tLane.state != nullptr) {
    tLane.state->store(waiting ? kLaneWaiting : kLaneBusy);
  }
}

bool LocalEvaluator::AnotherLaneWaits() const {
  if (tLane.lanes == nullptr) {
    return false;
  }
  const size_t active = tLane.lanes->active.load();
  for (size_t lane = 0; lane < active; ++lane) {
    if (tLane.lanes->states[lane].load() == kLaneWaiting) {
      return true;
    }
  }
  return false;
}

RequestRecorder& LocalEvaluator::LaneRecorder() noexcept {
  return tLane.recorder != nullptr ? *tLane.recorder : GetQueueRecorder();
}

void LocalEvaluator::WakeLanes(Lanes& lanes) {
  if (!lanes.ready.load()) {
    return;  // the load wakes them when it ends
  }
  if (lanes.active.load() == 1) {
    lanes.triggers.front()->Trigger();
  } else {
    WakeIdleLane(lanes);  // a lane that leaves requests behind wakes the next
  }
}

void LocalEvaluator::WakeIdleLane(Lanes& lanes) {
  const size_t active = lanes.active.load();
  for (size_t lane = 0; lane < active; ++lane) {
    int idle = kLaneIdle;
    if (lanes.states[lane].compare_exchange_strong(idle, kLaneBusy)) {
      lanes.triggers[lane]->Trigger();
      return;
    }
  }
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
    const size_t batchSize =
        descriptions.empty() ? 1 : CalculateOptimalBatchSize(static_cast<size_t>(allowance), descriptions);
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

void LocalEvaluator::SetPredictionLanes(unsigned lanes) {
  ScopedLock lock(GetMutex(), "kivml::LocalEvaluator::SetPredictionLanes");
  mRequestedLanes = lanes;
}

size_t LocalEvaluator::GetPredictionLanes() const {
  const std::shared_ptr<Lanes> lanes = GetLanes();
  return lanes ? LanesInUse(*lanes) : 1;
}

size_t LocalEvaluator::LanesInUse(const Lanes& lanes) {
  return lanes.ready.load() ? lanes.active.load() : lanes.triggers.size();
}

void LocalEvaluator::AddWorkerStatistics(RequestRecords& total, std::chrono::nanoseconds span,
                                         std::vector<EvaluatorStatistics::Lane>& lanes) const {
  const std::shared_ptr<Lanes> running = GetLanes();
  if (!running) {
    return;
  }
  const size_t inUse = LanesInUse(*running);
  for (size_t lane = 0; lane < running->triggers.size(); ++lane) {
    const std::chrono::nanoseconds predicting = running->recorders[lane].AddTo(total);
    if (lane < inUse) {
      // A prediction that began before a reset counts whole in the new window: keep the share to 1.
      const double share = span.count() > 0
                               ? static_cast<double>(predicting.count()) / static_cast<double>(span.count())
                               : 0.0;
      lanes.push_back({predicting, std::min(share, 1.0)});
    }
  }
}

void LocalEvaluator::ClearWorkerStatistics() {
  if (const std::shared_ptr<Lanes> running = GetLanes()) {
    for (size_t lane = 0; lane < running->triggers.size(); ++lane) {
      running->recorders[lane].Clear();
    }
  }
}

unsigned LocalEvaluator::FitMachineLanes() noexcept {
  return std::clamp(kivcore::utility::CPUCount(), 1U, kMostFittedLanes);
}

unsigned LocalEvaluator::ResolveLanes() const {
  unsigned lanes = 1;
  {
    ScopedLock lock(GetMutex(), "kivml::LocalEvaluator::ResolveLanes");
    if (mRequestedLanes) {
      lanes = *mRequestedLanes;
    } else if (const auto setting = ReadWholeNumberSetting(settings::kPredictionLanes.key)) {
      lanes = static_cast<unsigned>(std::min<uint64_t>(*setting, kMostLanes));
    }
  }
  return lanes == kFitMachineLanes ? FitMachineLanes() : std::min(lanes, kMostLanes);
}

std::shared_ptr<LocalEvaluator::Lanes> LocalEvaluator::GetLanes() const {
  ScopedLock lock(GetMutex(), "kivml::LocalEvaluator::GetLanes");
  return mLanes;
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
  const unsigned laneCount = ResolveLanes();

  ScopedLock lock(GetMutex(), "kivml::LocalEvaluator::Start");
  if (mWorker) {
    return kivcore::async::MakeReadyFuture(static_cast<int>(kivcore::config::eInvalidArgument));
  }
  auto worker = kivcore::threads::CreateAsyncThreadedExecutor(name, laneCount,
                                                              kivcore::threads::ThreadPriority::kNormal, {},
                                                              {}, kivcore::threads::ThreadAttributes());

  const std::weak_ptr<LocalEvaluator> weakSelf =
      std::dynamic_pointer_cast<LocalEvaluator>(GetSharedFromThis());
  const bool batched = GetShouldUseBatching();
  const std::chrono::microseconds idleSpin = ReadIdleSpin();
  const bool retryRowsAlone = ReadRetryRowsAlone();
  auto lanes = std::make_shared<Lanes>();
  lanes->states = std::make_unique<std::atomic<int>[]>(laneCount);
  lanes->statisticians = std::make_unique<EvaluatorStatistician[]>(laneCount);
  lanes->recorders = std::make_unique<RequestRecorder[]>(laneCount);
  for (size_t lane = 0; lane < laneCount; ++lane) {
    lanes->states[lane].store(kLaneIdle);
    lanes->triggers.push_back(kivcore::threads::QueueOnlyOnce::Create(
        [weakSelf, lane, batched, idleSpin, retryRowsAlone] {
          // Left after `self`: the run may end by destroying the evaluator.
          const ExitBarrier::Scope inFlight;
          if (const auto self = weakSelf.lock()) {
            self->RunLane(lane, batched, idleSpin, retryRowsAlone);
          }
        },
        worker, 0, 0));
  }
  // One worker thread runs the load before any prediction, so its trigger may fire at once; with more,
  // lanes wait for the load to decide how many may run.
  lanes->ready.store(laneCount == 1);

  auto completion = std::make_shared<LoadCompletion>();
  kivcore::async::Future<int> loaded = completion->mPromise.GetFuture();
  worker->Post(
      [weakSelf, lanes, completion] {
        const ExitBarrier::Scope inFlight;
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
        const size_t created = lanes->triggers.size();
        if (created > 1 && !self->CanPredictConcurrently()) {
          KIV_TRACE(kTraceCategory, 5,
                    "The session cannot run predictions concurrently: 1 prediction lane instead of " +
                        std::to_string(created));
        } else {
          lanes->active.store(created);
        }
        lanes->ready.store(true);
        completion->mPromise.SetValue(result);
        WakeLanes(*lanes);  // requests queued before Start, or before the load ended, had nobody to
                            // wake a lane
      },
      0);

  mWorker = std::move(worker);
  mLanes = std::move(lanes);
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
  std::shared_ptr<Lanes> lanes;
  {
    ScopedLock lock(GetMutex(), "kivml::LocalEvaluator::QueueExecutor");
    lanes = mLanes;
  }
  if (!lanes || !lanes->ready.load()) {
    return;  // before Start, or before the load: both wake a lane when they are done
  }
  const size_t active = lanes->active.load();
  if (active == 1) {
    lanes->triggers.front()->Trigger();
    return;
  }
  // A waiting lane takes the request itself; one that is busy looks at the queue again before it idles.
  for (size_t lane = 0; lane < active; ++lane) {
    if (lanes->states[lane].load() == kLaneWaiting) {
      return;
    }
  }
  WakeIdleLane(*lanes);
}

void LocalEvaluator::RunLane(size_t lane, bool batched, std::chrono::microseconds idleSpin,
                             bool retryRowsAlone) {
  const std::shared_ptr<Lanes> lanes = GetLanes();
  if (!lanes) {
    return;  // being destroyed
  }
  const bool several = lanes->active.load() > 1;
  std::atomic<int>& state = lanes->states[lane];
  tLane.state = several ? &state : nullptr;
  tLane.lanes = several ? lanes.get() : nullptr;
  tLane.statistician = several ? &lanes->statisticians[lane] : nullptr;
  tLane.recorder = &lanes->recorders[lane];
  for (;;) {
    state.store(kLaneBusy);
    if (batched) {
      ProcessQueueThroughModelBatched(retryRowsAlone);
    } else {
      ProcessQueueThroughModel(idleSpin);
    }
    state.store(kLaneIdle);
    // A producer that saw this lane busy counted on it to look again. Paused, the queue waits for Resume.
    if (!several || ExitBarrier::Exiting() || !HasQueuedItems() || IsWorkerPaused()) {
      break;
    }
    int idle = kLaneIdle;
    if (!state.compare_exchange_strong(idle, kLaneBusy)) {
      break;  // a producer woke this lane meanwhile: its trigger runs the loop again
    }
  }
  tLane = LaneOfThread();
}

LocalEvaluator::RequestQueue LocalEvaluator::PopAfterIdleSpin(size_t most,
                                                              std::chrono::microseconds idleSpin) {
  RequestQueue requests = PopUnlessPaused(most);
  if (!requests.empty() || idleSpin.count() == 0 || AnotherLaneWaits()) {
    return requests;  // one watching lane is enough: the next request goes to it
  }
  SetLaneWaiting(true);
  const bool opened = GetClock().SpinAtGate(GetGate(), GetClock().Now() + idleSpin);
  SetLaneWaiting(false);
  // Empty if paused meanwhile: Resume triggers the loop again.
  return opened ? PopUnlessPaused(most) : std::move(requests);
}

void LocalEvaluator::ProcessQueueThroughModel(std::chrono::microseconds idleSpin) {
  static kivcore::utility::Indestructible<kivcore::debug::ProfileRegion> predictRegion(
      "kivmachinelearning.LocalEvaluator Predict");
  const size_t most = TakeLimit(1);
  for (RequestQueue requests = PopUnlessPaused(most); !requests.empty();
       requests = PopAfterIdleSpin(most, idleSpin)) {
    // A request that follows another at once starts predicting when that one completed: a clock read less
    // per request, which under load is a good part of what recording costs.
    std::optional<BatchFillClock::TimePoint> now;
    for (; !requests.empty(); requests.pop_front()) {
      if (ExitBarrier::Exiting()) {
        ErrorOutQueue(requests);  // the process goes away: answer now rather than drain the queue
        return;
      }
      auto& request = requests.front();
      if (request.mPromise.IsAbandoned()) {
        LaneRecorder().RecordAbandoned(1);
        continue;  // nobody waits for the answer
      }
      const auto start = now ? *now : GetClock().Now();
      utility::FeatureContainerVector outputs;
      std::exception_ptr failure;
      try {
        auto scope = predictRegion->Scope();
        outputs = Predict(request.mInputs);
      } catch (...) {
        failure = std::current_exception();
      }
      const auto end = GetClock().Now();
      // Counted before the future completes, so that a snapshot taken once the answer is in has it.
      LaneRecorder().RecordSingle(request.mQueuedAt, start, end, end, failure ? FailureResult(failure) : 0);
      if (failure) {
        request.mPromise.SetException(failure);
      } else {
        request.mPromise.SetValue(std::move(outputs));
      }
      now = GetClock().Now();
    }
  }
}

void LocalEvaluator::ProcessQueueThroughModelBatched(bool retryRowsAlone) {
  EvaluatorStatistician& statistician = tLane.statistician ? *tLane.statistician : tWorkerStatistician;
  const auto model = GetModel();
  const FeatureDescriptionVector descriptions =
      model ? model->GetInputFeatureDescriptions() : FeatureDescriptionVector();
  RequestQueue pending;  // taken from the queue but not yet in a batch
  for (;;) {
    if (ExitBarrier::Exiting()) {
      ErrorOutQueue(pending);  // the process goes away: answer now rather than drain the queue
      return;
    }
    BatchContainer container(GetBatchSize(), descriptions);
    const auto fillStart = GetClock().Now();
    try {
      if (!FillBatchLoop(container, pending, statistician, fillStart)) {
        return;
      }
    } catch (...) {
      // Padding or taking the queue failed: whoever was taken hears why, instead of a broken promise.
      const std::exception_ptr exception = std::current_exception();
      kivcore::logging::LogException(exception, "kivml::LocalEvaluator::FillBatchLoop", nullptr);
      // Counted before the answers go out, so that a snapshot taken once they are in has them.
      LaneRecorder().RecordOutcome(FailureResult(exception),
                                   container.GetBatchedPromises().size() + pending.size());
      for (auto& promise : container.GetBatchedPromises()) {
        promise.SetException(exception);
      }
      for (auto& request : pending) {
        request.mPromise.SetException(exception);
      }
      return;
    }
    const auto start = GetClock().Now();
    BatchRun run = RunBatch(container);
    const auto end = GetClock().Now();
    statistician.RecordSample(std::chrono::duration_cast<std::chrono::milliseconds>(end - start));
    RecordBatchRun(container, fillStart, start, end);
    if (tLane.lanes != nullptr &&
        statistician.GetSampleCount() >= EvaluatorStatistician::kSamplesBeforeEstimate) {
      tLane.lanes->sharedEstimateMs.store(statistician.GetExpectedBatchInferenceTime({}).count());
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
    if (ExitBarrier::Exiting()) {
      ErrorOutQueue(requests);
      return;
    }
    BatchContainer alone(failed.BatchSize(), descriptions);
    if (!alone.AddToBatch(std::move(requests.front()))) {
      LaneRecorder().RecordAbandoned(1);
      continue;  // nobody waits for the answer any more
    }
    if (pad) {
      const utility::FeatureContainerVector row = alone.GetBatchedFeatures().front();
      alone.PadWith(row);
    }
    const auto start = GetClock().Now();
    BatchRun run = RunBatch(alone);
    RecordBatchRun(alone, std::nullopt, start, GetClock().Now());
    AnswerBatch(alone, std::move(run));
  }
}

void LocalEvaluator::RecordBatchRun(const BatchContainer& container,
                                    std::optional<BatchFillClock::TimePoint> fillStart,
                                    BatchFillClock::TimePoint start, BatchFillClock::TimePoint end) {
  const auto& queued = container.GetQueuedTimes();
  // A row run again alone waited in the queue only until its first batch.
  const std::span<const BatchFillClock::TimePoint> firstRun =
      fillStart ? std::span(queued.data(), queued.size()) : std::span<const BatchFillClock::TimePoint>();
  LaneRecorder().RecordBatch(firstRun, queued.size(), container.Size() - queued.size(), fillStart, start,
                             end);
}

void LocalEvaluator::AnswerBatch(BatchContainer& container, BatchRun run) {
  auto& promises = container.GetBatchedPromises();
  const auto& queued = container.GetQueuedTimes();
  const std::span<const BatchFillClock::TimePoint> rows(queued.data(), queued.size());
  // Counted before the futures complete, so that a snapshot taken once the answers are in has them.
  if (!kivcore::ResultSucceeded(run.result)) {
    LaneRecorder().RecordAnswers(rows, GetClock().Now(), 0, run.result);
    for (auto& promise : promises) {
      promise.SetException(
          kivcore::config::MakeNestedException(kivcore::kiv_exception(kPredictError, run.result), run.cause));
    }
    return;
  }
  // Rows past the real requests are padding: their outputs are dropped with `run`.
  const size_t answered = std::min(promises.size(), run.outputs.size());
  LaneRecorder().RecordAnswers(rows, GetClock().Now(), answered, eInferenceFailure);
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

bool LocalEvaluator::CanPredictConcurrently() const {
  return false;
}

bool LocalEvaluator::IsWorkerPaused() const {
  ScopedLock lock(GetMutex(), "kivml::LocalEvaluator::IsWorkerPaused");
  return mWorker && mWorker->IsPaused();
}

void LocalEvaluator::CheckBatchRow(const utility::FeatureContainerVector& /*row*/,
                                   const utility::FeatureContainerVector* /*firstRow*/) {}

QueuedFeatureRequest LocalEvaluator::AdmitToBatch(const BatchContainer& container,
                                                  QueuedFeatureRequest& request, size_t& refused) {
  if (!request.mPromise.IsAbandoned()) {
    const auto& rows = container.GetBatchedFeatures();
    try {
      CheckBatchRow(request.mInputs, rows.empty() ? nullptr : &rows.front());
    } catch (...) {
      const std::exception_ptr failure = std::current_exception();
      LaneRecorder().RecordOutcome(FailureResult(failure), 1);
      auto answered = std::move(request.mPromise);
      answered.SetException(failure);
      ++refused;
    }
  }
  return std::move(request);
}

bool LocalEvaluator::FillBatchLoop(BatchContainer& container, RequestQueue& pending,
                                   const EvaluatorStatistician& statistician,
                                   BatchFillClock::TimePoint start) {
  static kivcore::utility::Indestructible<kivcore::debug::ProfileRegion> fillRegion(
      "kivmachinelearning.LocalEvaluator FillBatchLoop");
  auto scope = fillRegion->Scope();
  const bool mustFill = MustFillBatch();
  const FillTurn turn(mustFill ? tLane.lanes : nullptr);
  for (;;) {
    if (pending.empty()) {
      // Once a batch has rows it runs, paused or not; an empty one waits for Resume.
      pending = PopUnlessPaused(TakeLimit(container.BatchSize() - container.Size()), !container.IsEmpty());
    }
    size_t refused = 0;
    const size_t dropped = container.FillBatchFromContainer(
        pending, [&](QueuedFeatureRequest& request) { return AdmitToBatch(container, request, refused); });
    if (dropped > refused) {
      LaneRecorder().RecordAbandoned(dropped - refused);  // nobody waits for their answers
    }
    if (pending.empty() && container.IsEmpty()) {
      return false;
    }
    if (container.IsFull() || !mustFill) {
      break;
    }
    const auto missingRows =
        static_cast<std::chrono::milliseconds::rep>(container.BatchSize() - container.Size());
    std::chrono::milliseconds coldWait = missingRows * kFillWaitPerMissingRow;
    if (tLane.lanes != nullptr) {
      if (const int64_t shared = tLane.lanes->sharedEstimateMs.load(); shared >= 0) {
        coldWait = std::chrono::milliseconds(shared);
      }
    }
    const std::chrono::milliseconds wait =
        std::min(statistician.GetExpectedBatchInferenceTime(coldWait), kMaxFillWait);
    SetLaneWaiting(true);
    const bool opened = GetClock().WaitAtGate(GetGate(), GetClock().Now() + wait);
    SetLaneWaiting(false);
    if (!opened || ExitBarrier::Exiting()) {
      break;  // nobody came in time, or nobody will: run what we have
    }
  }
  const size_t dummyRows = mustFill ? container.FinalizeBatch() : 0;
  KIV_TRACE(kTraceCategory, 7,
            "Filled batch of size " + std::to_string(container.Size()) + " in " +
                std::to_string(
                    std::chrono::duration_cast<std::chrono::milliseconds>(GetClock().Now() - start).count()) +
                "ms" + " with " + std::to_string(dummyRows) + " dummy features");
  return true;
}

}  // namespace kivml
