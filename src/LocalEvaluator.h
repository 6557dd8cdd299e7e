#pragma once
// An evaluator that runs its model in this process, on a worker thread of its own. It owns the lifecycle
// (SetModel, Start, Pause, Resume), the batch size, the batch-filling loop with its adaptive wait and the
// hand-back of outputs to each request's future. Running the model is the backend's business: a derived
// class implements the backend operations at the end.
//
// Threads: by default one worker per evaluator (created by Start) runs the model load and every
// prediction, so predictions never overlap. Each QueueFeatures fires a fold-once trigger that runs the
// processing loop on the worker; bursts fold into one run. Whether that loop is the single or the batched
// one is fixed when Start runs: SetShouldUseBatching afterwards has no effect on it.
//
// Lanes: an evaluator given K > 1 prediction lanes has K worker threads, each running the same loop with a
// trigger of its own. A lane takes one request (or one batch) from the queue at a time, in arrival order,
// so predictions of different lanes overlap while every request is still answered exactly once. A request
// queued while some lane waits for work goes to that lane; otherwise it wakes one idle lane, and a lane
// that leaves requests behind in the queue wakes the next. Lanes start taking requests once the model has
// loaded, and only if the backend can predict concurrently (one lane otherwise). Pause, Resume, clearing
// and destruction act on all lanes alike; throttle thresholds count queued requests and do not change.
//
// Statistics: each lane records what it runs (queue waits, predictions, batches, outcomes) in a recorder of
// its own, so recording takes no lock that another lane or a producer contends for; a snapshot adds the
// lanes up.
//
// Start fires the trigger once the model load has finished, whatever its outcome, so requests queued
// before Start (when there was no trigger to fire) are answered without waiting for a later request.
//
// Lifetime: the worker holds the evaluator only weakly between runs. Destroying the evaluator shuts the
// worker down; requests still queued then fail with eModelExecutionTerminated, requests already taken
// into a batch are answered first (the run in progress keeps the evaluator alive until it ends).

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "BaseMLEvaluator.h"
#include "BatchContainer.h"
#include "BatchFillClock.h"
#include "EvaluatorStatistician.h"
#include "RequestRecorder.h"
#include "kivcore/threads/AsyncThreadedExecutor.h"
#include "kivcore/threads/QueueOnlyOnce.h"
#include "kivcore/threads/ThreadSafetyAnnotations.h"

namespace kivml {

class LocalEvaluator : public BaseMLEvaluator {
 public:
  using BatchRows = BatchContainer::FeatureVectors;
  using BatchOutputs = std::vector<utility::FeatureContainerVector,
                                   kivcore::allocator::STLAllocator<utility::FeatureContainerVector>>;

  // Longest wait for latecomers before a short batch runs.
  static constexpr std::chrono::milliseconds kMaxFillWait{1500};
  // Wait per missing row while no prediction times are known.
  static constexpr std::chrono::milliseconds kFillWaitPerMissingRow{250};
  // How long the single loop keeps watching an empty queue before its worker sleeps, unless the
  // setting kivml.IdleSpinMicroseconds says otherwise (0: sleep at once). A host that queues
  // its next request as soon as an answer arrives then skips a thread wake-up, which costs tens of
  // microseconds on small and virtual machines.
  static constexpr std::chrono::microseconds kDefaultIdleSpin{200};
  // A batch whose prediction fails has its requests run again one by one, so that only those that fail
  // alone are failed, unless the setting kivml.RetryFailedBatchRows turns that off: then one failure
  // fails the whole batch.
  // Most lanes "fit the machine" picks, and most lanes at all (more are cut to this).
  static constexpr unsigned kMostFittedLanes = 4;
  static constexpr unsigned kMostLanes = 64;

  ~LocalEvaluator() override;

  // \see IMLEvaluator. False when Start has not created the worker yet. A paused evaluator answers the
  // requests its worker has already taken and takes no more; Resume picks up the queue where it stopped.
  bool Pause() override;
  bool Resume() override;

  // \see IMLEvaluatorPrivate. SetModel picks the batch size from a tenth of the free video memory and the
  // model's input sizes (1 for a model without inputs); failures raise SetModelException.
  int SetModel(kivcore::classref::InterfaceRef<IMLModel> model) override;
  void SetShouldUseBatching(bool shouldUseBatching) override;
  // Predictions the evaluator may run at once (kFitMachineLanes: FitMachineLanes()); takes effect at
  // Start. Without it, Start reads the setting kivml.PredictionLanes (default 1).
  void SetPredictionLanes(unsigned lanes);
  // Lanes in use: those Start created, then, once the model has loaded, 1 unless the backend can predict
  // concurrently. 1 before Start.
  size_t GetPredictionLanes() const;
  // What kFitMachineLanes resolves to: one lane per processor, at most kMostFittedLanes.
  static unsigned FitMachineLanes() noexcept;
  // Creates the worker and loads the model on it; the future yields LoadModel's result code. A second
  // Start yields eInvalidArgument and changes nothing.
  kivcore::async::Future<int> Start() override;

  // Why the model failed to load (the exception LoadModel or Start raised); null while it has not failed.
  // Set before Start's future completes.
  std::exception_ptr GetLoadFailure() const;

  // Fires the worker's trigger (QueueExecutor); does nothing before Start.
  void MarkQueueHasPendingFeatures() KIV_EXCLUDES(GetMutex()) override;

  // --- Backend operations, all called on a worker thread except the type name; with several lanes,
  // Predict and PredictBatched may run on several at once (see CanPredictConcurrently).
  // A constant name for the kind of evaluator ("ORT"); used to name the worker.
  virtual const char* GetEvaluatorTypeName() const = 0;
  // Loads the bound model; returns a result code.
  virtual int LoadModel() = 0;
  // Whether a batch must hold exactly the batch size rows: if so the fill loop waits for latecomers and
  // pads with dummy rows.
  virtual bool MustFillBatch() const = 0;
  // Whether Predict and PredictBatched may run on several threads at once, which lanes need. Asked once,
  // after LoadModel. False unless overridden.
  virtual bool CanPredictConcurrently() const;
  // One request's inputs to its outputs; throws on failure.
  virtual utility::FeatureContainerVector Predict(const utility::FeatureContainerVector& inputs) = 0;
  // One prediction over every row of `batch`; fills `outputs` with one vector per row, in row order, and
  // returns a result code.
  virtual int PredictBatched(const BatchRows& batch, BatchOutputs& outputs) = 0;
  // Whether PredictBatched runs a batch with fewer rows than the batch size. When it cannot, a request
  // run again alone is padded with copies of itself. False unless overridden.
  virtual bool CanRunShortBatch() const;
  // Admits a request into a batch whose first row is `firstRow` (null for the first row): throws when the
  // request cannot share a prediction with it, which fails that request alone. Admits everything unless
  // overridden.
  virtual void CheckBatchRow(const utility::FeatureContainerVector& row,
                             const utility::FeatureContainerVector* firstRow);

 protected:
  explicit LocalEvaluator(std::shared_ptr<const BatchFillClock> clock = GetSteadyBatchFillClock());

  // Free video memory of the adapter GPU evaluation would use; 0 when unknown.
  virtual uint64_t QueryAvailableVideoMemory() const;

  // \see BaseMLEvaluator: one entry per lane in use.
  void AddWorkerStatistics(RequestRecords& total, std::chrono::nanoseconds span,
                           std::vector<EvaluatorStatistics::Lane>& lanes) const override;
  void ClearWorkerStatistics() override;

 private:
  enum LaneState : int {
    kLaneIdle,     // no run, or one about to end
    kLaneBusy,     // taking requests or predicting: it looks at the queue again before it idles
    kLaneWaiting,  // watching the gate for requests (idle spin, or latecomers for its batch)
  };
  // The worker's lanes, fixed by Start. With one worker thread the trigger of lane 0 fires on every queued
  // request, as with any single worker; with more, the lane states decide which lane to wake.
  // The containers are filled by Start before it publishes the lanes, and never change afterwards.
  struct Lanes {
    std::vector<std::shared_ptr<kivcore::threads::QueueOnlyOnce>> triggers;  // thread-safe each
    std::unique_ptr<std::atomic<int>[]> states;
    std::atomic<size_t> active{1};   // lanes taking requests; 1 until the model has loaded
    std::atomic<bool> ready{false};  // whether queued requests may wake a lane; set after the load
    // Turns at filling a batch that must be full, taken in the order lanes ask: lanes then do not split
    // the latecomers between partial batches that all wait and go out padded, and every lane gets to time
    // batches of its own, which its fill waits need. Predictions still overlap.
    std::mutex fillMutex;
    std::condition_variable fillTurnEnded;
    // Guarded by fillMutex, which the analysis cannot see: the condition variable needs a std::mutex.
    uint64_t fillTickets = 0;
    uint64_t fillServing = 0;
    // Each lane's batch times: a lane's runs never overlap, though they may move between the workers'
    // threads, so these need no lock.
    std::unique_ptr<EvaluatorStatistician[]> statisticians;
    // The estimate of the last lane that has timed enough batches to have one (ms; -1: none yet). A lane
    // without an estimate of its own waits that long for latecomers rather than the cold default: under
    // light traffic a lane may take long to time batches of its own.
    std::atomic<int64_t> sharedEstimateMs{-1};
    // What each lane ran, for the evaluator's statistics; each has a lock of its own.
    std::unique_ptr<RequestRecorder[]> recorders;
  };

  // The lane whose run this thread is in, while it is in one (and there are several); its state tells
  // producers whether it waits. Worker-only: each thread sees its own.
  struct LaneOfThread {
    std::atomic<int>* state = nullptr;
    Lanes* lanes = nullptr;
    EvaluatorStatistician* statistician = nullptr;
    RequestRecorder* recorder = nullptr;  // set with one lane too
  };
  static thread_local LaneOfThread tLane;
  class FillTurn;

  kivcore::async::Future<int> StartWorker();
  unsigned ResolveLanes() const;
  void SetLoadFailure(std::exception_ptr failure);
  void QueueExecutor();
  std::shared_ptr<Lanes> GetLanes() const;
  // The trigger's task for `lane`: runs the processing loop until the queue stays empty (or the worker is
  // paused), then idles the lane unless requests came meanwhile.
  void RunLane(size_t lane, bool batched, std::chrono::microseconds idleSpin, bool retryRowsAlone);
  // Wakes the lane, or with several an idle one, to take queued requests; nothing before the load.
  static void WakeLanes(Lanes& lanes);
  // Wakes an idle lane, if any, to take queued requests.
  static void WakeIdleLane(Lanes& lanes);
  // Lanes taking requests: those created until the load has decided.
  static size_t LanesInUse(const Lanes& lanes);
  bool IsWorkerPaused() const;
  // Takes the queued requests, at most `most` of them, or none while the worker is paused (unless
  // `evenIfPaused`), so that Pause also stops a processing loop that is already running (under steady load
  // it would never end). With several lanes, wakes another lane when requests remain.
  RequestQueue PopUnlessPaused(size_t most, bool evenIfPaused = false);
  // PopUnlessPaused, and if that finds the queue empty, watches it for `idleSpin` before giving up.
  RequestQueue PopAfterIdleSpin(size_t most, std::chrono::microseconds idleSpin);
  // Requests one take may hold: all with one lane, else `perLane`.
  size_t TakeLimit(size_t perLane) const;
  // Whether, among several lanes, one already watches the queue.
  bool AnotherLaneWaits() const;
  // Marks this thread's lane as waiting (or busy again), where lanes are in use.
  void SetLaneWaiting(bool waiting) const;
  // Where this thread's lane records what it runs; the queue's recorder outside a lane.
  RequestRecorder& LaneRecorder() noexcept;
  // The single loop: predicts each queued request on its own until the queue stays empty for `idleSpin`.
  void ProcessQueueThroughModel(std::chrono::microseconds idleSpin);
  // What one batched prediction gave: its result code, the backend's exception when it threw, and the
  // output rows.
  struct BatchRun {
    int result = 0;
    std::exception_ptr cause;
    BatchOutputs outputs;
  };

  // The batched loop: fills, predicts and answers batches until the queue is empty. With
  // `retryRowsAlone`, the requests of a failed batch run again one by one.
  void ProcessQueueThroughModelBatched(bool retryRowsAlone);
  // PredictBatched over the container's rows; a failure is logged and asserted against.
  BatchRun RunBatch(const BatchContainer& container);
  // Runs each real request of `failed` alone and answers it from that run.
  void RetryRowsAlone(BatchContainer& failed, const FeatureDescriptionVector& descriptions);
  // Fills `container` from `pending` and the queue, waiting for latecomers when the backend wants full
  // batches; `start` is when filling began. False when there is nothing to run.
  bool FillBatchLoop(BatchContainer& container, RequestQueue& pending,
                     const EvaluatorStatistician& statistician, BatchFillClock::TimePoint start);
  // Answers the container's requests from `run`: their rows, or the failure with its cause attached.
  void AnswerBatch(BatchContainer& container, BatchRun run);
  // Records one batched prediction of the container's rows from `start` to `end`, filled from `fillStart`;
  // none for a request run again alone.
  void RecordBatchRun(const BatchContainer& container, std::optional<BatchFillClock::TimePoint> fillStart,
                      BatchFillClock::TimePoint start, BatchFillClock::TimePoint end);
  // `request` as the next row of `container`; when CheckBatchRow refuses it, the request is failed, counted
  // in `refused` and handed back without its promise, so that the container drops it.
  QueuedFeatureRequest AdmitToBatch(const BatchContainer& container, QueuedFeatureRequest& request,
                                    size_t& refused);

  // Guarded by the evaluator's mutex; what the pointers point to is thread-safe, or fixed once published.
  std::shared_ptr<kivcore::threads::AsyncThreadedExecutor> mWorker KIV_GUARDED_BY(GetMutex());
  std::shared_ptr<Lanes> mLanes KIV_GUARDED_BY(GetMutex());
  std::optional<unsigned> mRequestedLanes KIV_GUARDED_BY(GetMutex());
  std::exception_ptr mLoadFailure KIV_GUARDED_BY(GetMutex());
};

}  // namespace kivml
