#pragma once
// Scheduling priority asked for an executor's worker threads. Best effort: a platform that refuses a
// level (raising priority usually needs privileges) leaves the thread at the priority it inherited.
//   0 kIdle          runs only when nothing else wants the CPU
//   1 kLowest
//   2 kBelowNormal
//   3 kNormal        the priority threads are created with; left untouched
//   4 kAboveNormal
//   5 kHighest
//   6 kTimeCritical  above every ordinary thread
// Linux maps the levels onto the thread's nice value (19, 10, 5, -, -5, -10, -15); Windows onto the
// THREAD_PRIORITY_* levels of the same names.

namespace kivcore::threads {

enum class ThreadPriority : int {
  kIdle = 0,
  kLowest = 1,
  kBelowNormal = 2,
  kNormal = 3,
  kAboveNormal = 4,
  kHighest = 5,
  kTimeCritical = 6,
};

}  // namespace kivcore::threads
