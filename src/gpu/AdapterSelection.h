#pragma once
// Adapter choice: the first adapter in high-performance order that is real hardware.

#include <cstddef>
#include <functional>
#include <memory>

#include "gpu/GPUAdapterEnumerator.h"

namespace kivml::gpu {

struct SelectedAdapter {
  std::unique_ptr<GPUAdapter> mAdapter;
  AdapterDescription mDescription;
  size_t mIndex = 0;  // position in the enumerator's order, adapters skipped before it included
};

// Skips adapters whose description cannot be read, the basic render driver and, unless
// `acceptSoftware`, adapters whose flags equal the software flag exactly (other bits set beside it
// pass). Empty mAdapter when none qualifies.
SelectedAdapter SelectHighPerformanceAdapter(GPUAdapterEnumerator& enumerator, bool acceptSoftware);

// The same over the platform's enumerator, accepting software adapters only while tests allow it.
SelectedAdapter SelectPlatformAdapter();

// The platform's enumerator, or the adapters a test put in its place.
std::unique_ptr<GPUAdapterEnumerator> CreateAdapterEnumerator();

// For tests that need a GPU session on a software rasterizer (CI machines have no GPU). Process-wide;
// nothing in the library turns it on.
void SetSoftwareAdaptersAcceptedForTesting(bool accepted);

// For tests of what is built on adapter choice: the adapters `create` lists replace the platform's (an
// empty function restores them). Process-wide; nothing in the library calls it.
void SetAdapterEnumeratorForTesting(std::function<std::unique_ptr<GPUAdapterEnumerator>()> create);

}  // namespace kivml::gpu
