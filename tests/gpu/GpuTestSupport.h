#pragma once
// A Direct3D 12 device for tests, on whatever adapter the machine has: CI machines only have a software
// rasterizer (lavapipe), which the library itself never picks, so the tests accept it explicitly.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "gpu/AdapterSelection.h"
#include "kivcore/config/kiv_exception.h"
#include "kivml/gpu/D3D12.h"

namespace kivml::gpu::test {

// Accepts software adapters for the lifetime of the object.
class SoftwareAdaptersAccepted {
 public:
  SoftwareAdaptersAccepted() { SetSoftwareAdaptersAcceptedForTesting(true); }
  ~SoftwareAdaptersAccepted() { SetSoftwareAdaptersAcceptedForTesting(false); }
  SoftwareAdaptersAccepted(const SoftwareAdaptersAccepted&) = delete;
  SoftwareAdaptersAccepted& operator=(const SoftwareAdaptersAccepted&) = delete;
};

// An adapter list as a platform would report it; an empty description stands for a failed read.
class FakeEnumerator final : public GPUAdapterEnumerator {
 public:
  explicit FakeEnumerator(std::vector<std::optional<AdapterDescription>> adapters)
      : mAdapters(std::move(adapters)) {}

  std::unique_ptr<GPUAdapter> EnumAdapter(size_t index) override {
    ++mEnumerated;
    return index < mAdapters.size() ? std::make_unique<FakeAdapter>(mAdapters[index]) : nullptr;
  }

  size_t mEnumerated = 0;

 private:
  class FakeAdapter final : public GPUAdapter {
   public:
    explicit FakeAdapter(std::optional<AdapterDescription> description)
        : mDescription(std::move(description)) {}
    std::optional<AdapterDescription> ReadDescription() override { return mDescription; }
    uint64_t QueryAvailableMemory() noexcept override { return 0; }
    ComPtr<ID3D12Device> CreateD3D12Device() override { return nullptr; }

   private:
    std::optional<AdapterDescription> mDescription;
  };

  std::vector<std::optional<AdapterDescription>> mAdapters;
};

// The library sees `adapters` instead of the platform's for the lifetime of the object.
class AdaptersReplaced {
 public:
  explicit AdaptersReplaced(std::vector<std::optional<AdapterDescription>> adapters) {
    SetAdapterEnumeratorForTesting(
        [adapters = std::move(adapters)] { return std::make_unique<FakeEnumerator>(adapters); });
  }
  ~AdaptersReplaced() { SetAdapterEnumeratorForTesting({}); }
  AdaptersReplaced(const AdaptersReplaced&) = delete;
  AdaptersReplaced& operator=(const AdaptersReplaced&) = delete;
};

// The adapter tests run on, software ones included. None where the platform's adapter factory cannot be
// made either (DXGI without a display, under Wine).
inline SelectedAdapter SelectTestAdapter() {
  SoftwareAdaptersAccepted accept;
  try {
    return SelectPlatformAdapter();
  } catch (const kivcore::kiv_exception&) {
    return {};
  }
}

// The name of the adapter tests would run on, or empty when the machine has none at all.
inline std::string TestAdapterName() {
  const SelectedAdapter selected = SelectTestAdapter();
  return selected.mAdapter ? selected.mDescription.mName : std::string();
}

// Heaps and resources hold their device, and a pool may release them on a worker after its test has
// ended. Had that last release come while the process exits, the device would tear its Vulkan instance
// down while the loader's own exit handlers run. So every test device is also held here, and released on
// the main thread at the end of the run, once nothing else holds it.
class TestDevicesReleasedLast final : public ::testing::Environment {
 public:
  static void Hold(ComPtr<ID3D12Device> device) {
    const std::lock_guard lock(Mutex());
    Devices().push_back(std::move(device));
  }

  void TearDown() override {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    const std::lock_guard lock(Mutex());
    for (ComPtr<ID3D12Device>& device : Devices()) {
      while (!HeldOnlyHere(device.get()) && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
      EXPECT_TRUE(HeldOnlyHere(device.get())) << "a test device is still held 30 s after the last test";
      device.reset();
    }
    Devices().clear();
  }

 private:
  static bool HeldOnlyHere(ID3D12Device* device) {
    const ULONG references = device->AddRef();  // this list's reference and the probe's
    device->Release();
    return references == 2;
  }
  static std::mutex& Mutex() {
    static std::mutex mutex;
    return mutex;
  }
  static std::vector<ComPtr<ID3D12Device>>& Devices() {
    static std::vector<ComPtr<ID3D12Device>> devices;
    return devices;
  }
};

// gtest owns the environment and tears it down after the last test, before main returns.
inline ::testing::Environment* const kTestDevicesReleasedLast =
    ::testing::AddGlobalTestEnvironment(new TestDevicesReleasedLast);

// Null when there is no adapter; the caller skips then.
inline ComPtr<ID3D12Device> CreateTestDevice() {
  const SelectedAdapter selected = SelectTestAdapter();
  ComPtr<ID3D12Device> device = selected.mAdapter ? selected.mAdapter->CreateD3D12Device() : nullptr;
  if (device != nullptr) {
    TestDevicesReleasedLast::Hold(device);
  }
  return device;
}

// CI sets KIV_TESTS_REQUIRE_ADAPTER=1 so that a broken driver install fails the run instead of
// skipping every GPU test.
inline bool AdapterRequired() {
  const char* value = std::getenv("KIV_TESTS_REQUIRE_ADAPTER");
  return value != nullptr && std::string(value) == "1";
}

}  // namespace kivml::gpu::test

// Skips the current test, with the reason, on a machine without any Vulkan device (fails instead where
// an adapter is required). `present` is a device, or any other test of there being an adapter.
#define KIV_REQUIRE_TEST_DEVICE(present)                                           \
  if (!(present)) {                                                                \
    if (::kivml::gpu::test::AdapterRequired()) {                                   \
      FAIL() << "no GPU adapter on this machine, and KIV_TESTS_REQUIRE_ADAPTER=1"; \
    }                                                                              \
    GTEST_SKIP() << "no GPU adapter on this machine (not even a software one)";    \
  }
