#pragma once
// Collects the library's trace messages (category "kivmachinelearning", every level) while it lives,
// exactly as a host's sink receives them: Saw compares whole messages, line end included.

#include <algorithm>
#include <iterator>
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
  // The messages that end with `ending`, in the order they came.
  std::vector<std::string> Ending(const std::string& ending) const {
    std::lock_guard lock(mMutex);
    std::vector<std::string> found;
    std::copy_if(mLines.begin(), mLines.end(), std::back_inserter(found), [&](const std::string& line) {
      return line.size() >= ending.size() &&
             line.compare(line.size() - ending.size(), ending.size(), ending) == 0;
    });
    return found;
  }

 private:
  kivcore::debug::TraceSink mPrevious;
  mutable std::mutex mMutex;
  std::vector<std::string> mLines;
};

}  // namespace kivml::testing
