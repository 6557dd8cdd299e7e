#pragma once
// Work that must end before the process tears down its static state. Evaluator workers keep running while
// the exiting thread runs static destructors: a run may be in the middle of a prediction, or end by
// destroying its evaluator (when the host let go meanwhile) and releasing its ONNX Runtime session. Runs
// are counted, and once exit begins:
// - Exiting() turns true, so that processing loops stop after the prediction in hand and fail what they
//   hold with eModelExecutionTerminated instead of draining their queue;
// - every watched gate opens, so that a loop waiting there for latecomers stops waiting;
// - exit waits (5 s at most) for the runs in flight to end.
// Static state that runs use and that is built after WaitAtExit was called is destroyed before that wait
// ends; such state must be Indestructible (kivcore/utility/Indestructible.h).

#include "kivcore/threads/Gate.h"

namespace kivml {

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

  // Opens `gate` when exit begins. The gate must outlive the watch.
  class GateWatch {
   public:
    explicit GateWatch(kivcore::threads::Gate& gate);
    ~GateWatch();
    GateWatch(const GateWatch&) = delete;
    GateWatch& operator=(const GateWatch&) = delete;

   private:
    kivcore::threads::Gate& mGate;
  };

  // True once the process has begun to exit.
  static bool Exiting() noexcept;

  // Makes exit wait for runs in flight. Exit handlers run in reverse order of registration, interleaved
  // with static destructors, so call this once the state to protect exists (after a library has built
  // its statics); calling it again later protects state built since.
  static void WaitAtExit();
};

}  // namespace kivml
