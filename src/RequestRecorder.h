#pragma once
// RequestRecords behind a mutex of their own. Each prediction lane records into its own recorder, and a
// lane's runs never overlap, so the lock is only ever contended by a snapshot being taken. Recording never
// throws: statistics that cannot be kept (no memory) are not worth failing a request for.

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <span>

#include "RequestRecords.h"

namespace kivml {

class RequestRecorder {
 public:
  using TimePoint = RequestRecords::TimePoint;

  // \see RequestRecords.
  void RecordSingle(TimePoint queuedAt, TimePoint start, TimePoint end, TimePoint completed,
                    int result) noexcept;
  void RecordBatch(std::span<const TimePoint> firstRun, size_t rows, size_t dummyRows,
                   std::optional<TimePoint> fillStart, TimePoint start, TimePoint end) noexcept;
  void RecordAnswers(std::span<const TimePoint> queuedAt, TimePoint completed, size_t answered,
                     int result) noexcept;
  void RecordOutcome(int result, uint64_t count) noexcept;
  void RecordAbandoned(uint64_t count) noexcept;

  // Adds these records into `total`; returns the time they spent predicting.
  std::chrono::nanoseconds AddTo(RequestRecords& total) const;
  void Clear();

 private:
  mutable std::mutex mMutex;
  RequestRecords mRecords;
};

}  // namespace kivml
