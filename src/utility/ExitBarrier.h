#pragma once
// Work that must end before the process tears down its static state. An evaluator worker's run may end by
// destroying the evaluator (when its host let go meanwhile), releasing its ONNX Runtime session; if the
// process exits during that, ONNX Runtime's state goes first and the release crashes. Runs are counted,
// and exit waits (5 s at most) for the count to drop to none.

namespace kivml::utility {

class ExitBarrier {
 public:
  // Counts the scope's lifetime as a run in flight.
  class Scope {
   public:
    Scope();
    ~Scope();
    Scope(const Scope&) = delete;
    Scope& operator=(const Scope&) = delete;
  };

  // Makes exit wait for runs in flight. Exit handlers run in reverse order of registration, interleaved
  // with static destructors, so call this once the state to protect exists (after a library has built
  // its statics); calling it again later protects state built since.
  static void WaitAtExit();
};

}  // namespace kivml::utility
