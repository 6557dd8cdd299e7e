#pragma once
// Adapter choice: the first adapter in high-performance order that is real hardware.

#include <memory>

#include "gpu/GPUAdapterEnumerator.h"

namespace kivml::gpu {

struct SelectedAdapter {
  std::unique_ptr<GPUAdapter> mAdapter;
  AdapterDescription mDescription;
};

// Skips adapters whose description cannot be read, the basic render driver and, unless
// `acceptSoftware`, adapters whose flags equal the software flag exactly (other bits set beside it
// pass). Empty mAdapter when none qualifies.
SelectedAdapter SelectHighPerformanceAdapter(GPUAdapterEnumerator& enumerator, bool acceptSoftware);

// The same over the platform's enumerator, accepting software adapters only while tests allow it.
SelectedAdapter SelectPlatformAdapter();

// For tests that need a GPU session on a software rasterizer (CI machines have no GPU). Process-wide;
// nothing in the library turns it on.
void SetSoftwareAdaptersAcceptedForTesting(bool accepted);

}  // namespace kivml::gpu
