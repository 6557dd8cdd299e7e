#include "gpu/AvailableVideoMemory.h"

namespace kivml::gpu {

// No adapter query on this platform yet: report nothing known, so batch sizing falls back to its
// smallest batch.
uint64_t QueryAvailableVideoMemory() noexcept {
  return 0;
}

}  // namespace kivml::gpu
