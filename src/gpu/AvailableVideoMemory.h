#pragma once
// Video memory the process may still use on the adapter that GPU evaluation would pick: the adapter's
// local budget minus its current usage. Each platform implements it in its own file.

#include <cstdint>

namespace kivml::gpu {

// Bytes; 0 when there is no usable adapter or the query fails. Never throws.
uint64_t QueryAvailableVideoMemory() noexcept;

}  // namespace kivml::gpu
