#pragma once
// What happened to the requests one prediction lane ran, or to those that never reached a lane (cleared,
// dropped with the evaluator): outcome counts, queue, prediction and completion times, and batch sizes.
// Records of several lanes add up into the evaluator's. Not synchronized: RequestRecorder guards one.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>
#include <tuple>

#include "BoostHistogram.h"
#include "DurationHistogram.h"
#include "kivml/EvaluatorStatistics.h"

namespace kivml {

class RequestRecords {
 public:
  using TimePoint = std::chrono::steady_clock::time_point;

  RequestRecords();

  // One request predicted on its own: queued at `queuedAt`, predicted from `start` to `end`, its future
  // completed at `completed` with `result` (0: its outputs).
  void RecordSingle(TimePoint queuedAt, TimePoint start, TimePoint end, TimePoint completed, int result);
  // One batched prediction from `start` to `end` of `rows` real requests and `dummyRows` padding rows, filled
  // from `fillStart` (none for a request run again alone). `firstRun` holds when the real rows were queued,
  // for those whose first prediction this is: their wait in the queue ends at `start`.
  void RecordBatch(std::span<const TimePoint> firstRun, size_t rows, size_t dummyRows,
                   std::optional<TimePoint> fillStart, TimePoint start, TimePoint end);
  // The futures of requests queued at `queuedAt` completed at `completed`: the first `answered` with their
  // outputs, the others with `result`.
  void RecordAnswers(std::span<const TimePoint> queuedAt, TimePoint completed, size_t answered, int result);
  // `count` requests finished without a prediction, with `result` (0 is not a failure here).
  void RecordOutcome(int result, uint64_t count);
  // `count` requests were skipped because nobody held their future any more.
  void RecordAbandoned(uint64_t count);

  RequestRecords& operator+=(const RequestRecords& other);

  // Time spent in the backend's predictions.
  std::chrono::nanoseconds Predicting() const noexcept { return mPrediction.Sum(); }
  // Fills every part of `statistics` that these records know: outcomes, times and batches.
  void Summarise(EvaluatorStatistics& statistics) const;

 private:
  using RowsAxis = boost::histogram::axis::integer<int, boost::histogram::axis::null_type,
                                                   boost::histogram::axis::option::growth_t>;
  using RowsHistogram =
      boost::histogram::histogram<std::tuple<RowsAxis>, boost::histogram::dense_storage<uint64_t>>;

  uint64_t mAnswered = 0;
  uint64_t mTerminated = 0;
  uint64_t mAbandoned = 0;
  std::map<int, uint64_t> mFailures;  // by result code
  DurationHistogram mQueueWait;
  DurationHistogram mPrediction;
  DurationHistogram mCompletion;
  uint64_t mBatches = 0;
  uint64_t mBatchedRows = 0;
  uint64_t mDummyRows = 0;
  RowsHistogram mRowsPerBatch;  // grows to the sizes seen, so no larger than the biggest batch
  DurationHistogram mFillWait;
};

}  // namespace kivml
