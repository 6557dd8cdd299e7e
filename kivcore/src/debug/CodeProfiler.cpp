#include "kivcore/debug/CodeProfiler.h"

#include <utility>

namespace kivcore::debug {

CodeProfiler::CodeProfiler(boost::intrusive_ptr<ProfileDataLog> log) noexcept : mLog(std::move(log)) {
  if (mLog) {
    mStart = std::chrono::steady_clock::now();
  }
}

CodeProfiler::~CodeProfiler() {
  if (mLog) {
    const auto elapsed = std::chrono::steady_clock::now() - mStart;
    mLog->AddSample(
        static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::nanoseconds>(elapsed).count()));
  }
}

}  // namespace kivcore::debug
