#include "gpu/AvailableVideoMemory.h"

#include "gpu/AdapterSelection.h"

namespace kivml::gpu {

uint64_t QueryAvailableVideoMemory() noexcept {
  try {
    const SelectedAdapter selected = SelectPlatformAdapter();
    return selected.mAdapter ? selected.mAdapter->QueryAvailableMemory() : 0;
  } catch (...) {
    // Batch sizing treats an unknown amount as none; it must not fail model set-up.
    return 0;
  }
}

}  // namespace kivml::gpu
