#include "RequestRecorder.h"

#include <utility>

namespace kivml {

namespace {

// Runs `record` on `records` under `mutex`, dropping whatever it throws.
template <class Record>
void Guarded(std::mutex& mutex, RequestRecords& records, Record&& record) noexcept {
  try {
    std::lock_guard lock(mutex);
    record(records);
  } catch (...) {
  }
}

}  // namespace

void RequestRecorder::RecordSingle(TimePoint queuedAt, TimePoint start, TimePoint end, TimePoint completed,
                                   int result) noexcept {
  Guarded(mMutex, mRecords,
          [&](RequestRecords& records) { records.RecordSingle(queuedAt, start, end, completed, result); });
}

void RequestRecorder::RecordBatch(std::span<const TimePoint> firstRun, size_t rows, size_t dummyRows,
                                  std::optional<TimePoint> fillStart, TimePoint start,
                                  TimePoint end) noexcept {
  Guarded(mMutex, mRecords, [&](RequestRecords& records) {
    records.RecordBatch(firstRun, rows, dummyRows, fillStart, start, end);
  });
}

void RequestRecorder::RecordAnswers(std::span<const TimePoint> queuedAt, TimePoint completed, size_t answered,
                                    int result) noexcept {
  Guarded(mMutex, mRecords,
          [&](RequestRecords& records) { records.RecordAnswers(queuedAt, completed, answered, result); });
}

void RequestRecorder::RecordOutcome(int result, uint64_t count) noexcept {
  Guarded(mMutex, mRecords, [&](RequestRecords& records) { records.RecordOutcome(result, count); });
}

void RequestRecorder::RecordAbandoned(uint64_t count) noexcept {
  Guarded(mMutex, mRecords, [&](RequestRecords& records) { records.RecordAbandoned(count); });
}

std::chrono::nanoseconds RequestRecorder::AddTo(RequestRecords& total) const {
  std::lock_guard lock(mMutex);
  total += mRecords;
  return mRecords.Predicting();
}

void RequestRecorder::Clear() {
  RequestRecords cleared;  // built outside the lock: it allocates
  std::lock_guard lock(mMutex);
  std::swap(mRecords, cleared);
}

}  // namespace kivml
