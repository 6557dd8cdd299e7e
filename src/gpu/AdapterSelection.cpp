#include "gpu/AdapterSelection.h"

#include <atomic>
#include <mutex>
#include <utility>

#include "kivcore/utility/Indestructible.h"

namespace kivml::gpu {

namespace {

std::atomic<bool> gSoftwareAccepted{false};

struct TestEnumerator {
  std::mutex mutex;
  std::function<std::unique_ptr<GPUAdapterEnumerator>()> create;  // guarded by mutex
};

// Never destroyed: a worker may set up a GPU session while the process exits.
TestEnumerator& GetTestEnumerator() {
  static kivcore::utility::Indestructible<TestEnumerator> testEnumerator;
  return *testEnumerator;
}

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
    return {std::move(adapter), std::move(*description), index};
  }
}

SelectedAdapter SelectPlatformAdapter() {
  const auto enumerator = CreateAdapterEnumerator();
  return SelectHighPerformanceAdapter(*enumerator, gSoftwareAccepted.load());
}

std::unique_ptr<GPUAdapterEnumerator> CreateAdapterEnumerator() {
  {
    TestEnumerator& test = GetTestEnumerator();
    std::lock_guard lock(test.mutex);
    if (test.create) {
      return test.create();
    }
  }
  return CreatePlatformAdapterEnumerator();
}

void SetSoftwareAdaptersAcceptedForTesting(bool accepted) {
  gSoftwareAccepted.store(accepted);
}

void SetAdapterEnumeratorForTesting(std::function<std::unique_ptr<GPUAdapterEnumerator>()> create) {
  TestEnumerator& test = GetTestEnumerator();
  std::lock_guard lock(test.mutex);
  test.create = std::move(create);
}

}  // namespace kivml::gpu
