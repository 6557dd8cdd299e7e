#pragma once
// Times its own lifetime (steady clock) into a ProfileDataLog. With a null log it does nothing and reads
// no clock, so call sites can pass whatever a switch gave them. Lives on one thread; the log may be shared.

#include <chrono>

#include <boost/intrusive_ptr.hpp>

#include "kivcore/debug/ProfileDataLog.h"
#include "kivcore/kivcore_export.h"

namespace kivcore::debug {

class KIVCORE_EXPORT CodeProfiler {
 public:
  explicit CodeProfiler(boost::intrusive_ptr<ProfileDataLog> log) noexcept;
  ~CodeProfiler();
  CodeProfiler(const CodeProfiler&) = delete;
  CodeProfiler& operator=(const CodeProfiler&) = delete;

  bool IsActive() const noexcept { return mLog != nullptr; }

 private:
  boost::intrusive_ptr<ProfileDataLog> mLog;
  std::chrono::steady_clock::time_point mStart;
};

}  // namespace kivcore::debug
