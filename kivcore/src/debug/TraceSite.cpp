#include "kivcore/debug/TraceSite.h"

#include "kivcore/debug/Trace.h"

namespace kivcore::debug {

TraceSite::TraceSite(std::string_view category, int level) : mCategory(category), mLevel(level) {}

bool TraceSite::Enabled() noexcept {
  const uint64_t changeCount = TraceChangeCount();
  const uint64_t cached = mCached.load(std::memory_order_relaxed);
  if ((cached >> 1) == changeCount) {
    return (cached & 1) != 0;
  }
  bool enabled = false;
  try {
    enabled = TraceEnabled(mCategory, mLevel);
  } catch (...) {
    return false;  // a failed lock: answer "off" without caching
  }
  mCached.store((changeCount << 1) | (enabled ? 1 : 0), std::memory_order_relaxed);
  return enabled;
}

}  // namespace kivcore::debug
