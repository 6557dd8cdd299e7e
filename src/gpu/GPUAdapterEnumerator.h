#pragma once
// The platform's adapters in high-performance order. Each platform implements
// CreatePlatformAdapterEnumerator in its own file; adapter choice itself is shared (AdapterSelection).

#include <cstddef>
#include <memory>

#include "gpu/GPUAdapter.h"

namespace kivml::gpu {

class GPUAdapterEnumerator {
 public:
  virtual ~GPUAdapterEnumerator() = default;

  // The adapter at `index` in high-performance order; null past the last one.
  virtual std::unique_ptr<GPUAdapter> EnumAdapter(size_t index) = 0;
};

// Throws kiv_exception when the platform's adapter factory cannot be created. A platform without any
// adapter yields an enumerator that lists none.
std::unique_ptr<GPUAdapterEnumerator> CreatePlatformAdapterEnumerator();

}  // namespace kivml::gpu
