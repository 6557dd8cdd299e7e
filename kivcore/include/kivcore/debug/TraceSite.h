#pragma once
// The cached enabled state of one trace call site (category and level fixed at construction). Enabled()
// asks the trace again only when TraceChangeCount() has moved since the last answer, so a disabled site
// costs two atomic loads. Safe to share between threads (sites are usually function-local statics).

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

#include "kivcore/kivcore_export.h"

namespace kivcore::debug {

class KIVCORE_EXPORT TraceSite {
 public:
  TraceSite(std::string_view category, int level);
  TraceSite(const TraceSite&) = delete;
  TraceSite& operator=(const TraceSite&) = delete;

  bool Enabled() noexcept;
  const std::string& Category() const noexcept { return mCategory; }
  int Level() const noexcept { return mLevel; }

 private:
  static constexpr uint64_t kNeverChecked = ~uint64_t{0};

  const std::string mCategory;
  const int mLevel;
  // (change count << 1) | enabled, in one word so that the answer and its change count never tear.
  std::atomic<uint64_t> mCached{kNeverChecked};
};

}  // namespace kivcore::debug
