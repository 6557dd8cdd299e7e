#include "gpu/AdapterSelection.h"

#include <atomic>

namespace kivml::gpu {

namespace {

std::atomic<bool> gSoftwareAccepted{false};

bool IsBasicRenderDriver(const AdapterDescription& description) {
  return description.mVendorId == AdapterDescription::kBasicRenderVendorId &&
         description.mDeviceId == AdapterDescription::kBasicRenderDeviceId;
}

}  // namespace

SelectedAdapter SelectHighPerformanceAdapter(GPUAdapterEnumerator& enumerator, bool acceptSoftware) {
  for (size_t index = 0;; ++index) {
    std::unique_ptr<GPUAdapter> adapter = enumerator.EnumAdapter(index);
    if (!adapter) {
      return {};
    }
    std::optional<AdapterDescription> description = adapter->ReadDescription();
    if (!description || IsBasicRenderDriver(*description)) {
      continue;
    }
    // Equality, not a bit test: an adapter reporting the software bit together with another one is taken.
    if (!acceptSoftware && description->mFlags == AdapterDescription::kSoftwareFlag) {
      continue;
    }
    return {std::move(adapter), std::move(*description)};
  }
}

SelectedAdapter SelectPlatformAdapter() {
  const auto enumerator = CreatePlatformAdapterEnumerator();
  return SelectHighPerformanceAdapter(*enumerator, gSoftwareAccepted.load());
}

void SetSoftwareAdaptersAcceptedForTesting(bool accepted) {
  gSoftwareAccepted.store(accepted);
}

}  // namespace kivml::gpu
