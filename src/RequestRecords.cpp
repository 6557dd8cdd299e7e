#include "RequestRecords.h"

#include <algorithm>

#include "kivml/ResultCodes.h"

namespace kivml {

RequestRecords::RequestRecords()
    : mRowsPerBatch(boost::histogram::make_histogram_with(boost::histogram::dense_storage<uint64_t>(),
                                                          RowsAxis(1, 2))) {}

void RequestRecords::RecordSingle(TimePoint queuedAt, TimePoint start, TimePoint end, TimePoint completed,
                                  int result) {
  mQueueWait.Record(start - queuedAt);
  mPrediction.Record(end - start);
  mCompletion.Record(completed - queuedAt);
  RecordOutcome(result, 1);
}

void RequestRecords::RecordBatch(std::span<const TimePoint> firstRun, size_t rows, size_t dummyRows,
                                 std::optional<TimePoint> fillStart, TimePoint start, TimePoint end) {
  for (const TimePoint queuedAt : firstRun) {
    mQueueWait.Record(start - queuedAt);
  }
  mPrediction.Record(end - start);
  ++mBatches;
  mBatchedRows += rows;
  mDummyRows += dummyRows;
  mRowsPerBatch(static_cast<int>(rows));
  if (fillStart) {
    mFillWait.Record(start - *fillStart);
  }
}

void RequestRecords::RecordAnswers(std::span<const TimePoint> queuedAt, TimePoint completed, size_t answered,
                                   int result) {
  for (const TimePoint queued : queuedAt) {
    mCompletion.Record(completed - queued);
  }
  answered = std::min(answered, queuedAt.size());
  mAnswered += answered;
  RecordOutcome(result, queuedAt.size() - answered);
}

void RequestRecords::RecordOutcome(int result, uint64_t count) {
  if (count == 0) {
    return;
  }
  if (result == 0) {
    mAnswered += count;
  } else if (result == eModelExecutionTerminated) {
    mTerminated += count;
  } else {
    mFailures[result] += count;
  }
}

void RequestRecords::RecordAbandoned(uint64_t count) {
  mAbandoned += count;
}

RequestRecords& RequestRecords::operator+=(const RequestRecords& other) {
  mAnswered += other.mAnswered;
  mTerminated += other.mTerminated;
  mAbandoned += other.mAbandoned;
  for (const auto& [result, count] : other.mFailures) {
    mFailures[result] += count;
  }
  mQueueWait += other.mQueueWait;
  mPrediction += other.mPrediction;
  mCompletion += other.mCompletion;
  mBatches += other.mBatches;
  mBatchedRows += other.mBatchedRows;
  mDummyRows += other.mDummyRows;
  mRowsPerBatch += other.mRowsPerBatch;  // growing axes merge: the sum covers both ranges
  mFillWait += other.mFillWait;
  return *this;
}

void RequestRecords::Summarise(EvaluatorStatistics& statistics) const {
  statistics.answered = mAnswered;
  statistics.terminated = mTerminated;
  statistics.abandoned = mAbandoned;
  statistics.failuresByResult = mFailures;
  statistics.failed = 0;
  for (const auto& [result, count] : mFailures) {
    statistics.failed += count;
  }
  statistics.queueWait = mQueueWait.Summarise();
  statistics.prediction = mPrediction.Summarise();
  statistics.completion = mCompletion.Summarise();
  statistics.batches = mBatches;
  statistics.meanRowsPerBatch =
      mBatches == 0 ? 0.0 : static_cast<double>(mBatchedRows) / static_cast<double>(mBatches);
  statistics.rowsPerBatch.clear();
  for (auto&& bucket : boost::histogram::indexed(mRowsPerBatch)) {
    if (*bucket != 0) {
      statistics.rowsPerBatch.push_back({static_cast<size_t>(bucket.bin()), *bucket});
    }
  }
  statistics.dummyRows = mDummyRows;
  statistics.fillWait = mFillWait.Summarise();
}

}  // namespace kivml
