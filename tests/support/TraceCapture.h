#pragma once
// Collects the library's trace messages (category "kivmachinelearning", every level) while it lives,
// exactly as a host's sink receives them: Saw compares whole messages, line end included.

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

#include "kivcore/debug/Trace.h"

namespace kivml::testing {

class TraceCapture {
 public:
  TraceCapture() {
    mPrevious =
        kivcore::debug::SetTraceSink([this](int, const std::string& category, const std::string& message) {
          if (category == "kivmachinelearning") {
            std::lock_guard lock(mMutex);
            mLines.push_back(message);
          }
        });
    kivcore::debug::SetTraceLevel("kivmachinelearning", 7);
  }
  ~TraceCapture() {
    kivcore::debug::SetTraceLevel("kivmachinelearning", -1);
    kivcore::debug::SetTraceSink(mPrevious);
  }
  TraceCapture(const TraceCapture&) = delete;
  TraceCapture& operator=(const TraceCapture&) = delete;

  bool Saw(const std::string& line) const {
    std::lock_guard lock(mMutex);
    return std::find(mLines.begin(), mLines.end(), line) != mLines.end();
  }

 private:
  kivcore::debug::TraceSink mPrevious;
  mutable std::mutex mMutex;
  std::vector<std::string> mLines;
};

}  // namespace kivml::testing
