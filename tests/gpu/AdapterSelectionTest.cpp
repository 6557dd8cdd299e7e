#include <gtest/gtest.h>

#include <optional>
#include <vector>

#include "gpu/AdapterSelection.h"
#include "gpu/AvailableVideoMemory.h"
#include "gpu/GpuTestSupport.h"

namespace kivml::gpu {
namespace {

using test::FakeEnumerator;

AdapterDescription Adapter(const char* name, uint32_t flags = 0, uint32_t vendor = 0x10DE,
                           uint32_t device = 1) {
  return {vendor, device, flags, name};
}

std::string Choose(std::vector<std::optional<AdapterDescription>> adapters, bool acceptSoftware = false) {
  FakeEnumerator enumerator(std::move(adapters));
  const SelectedAdapter selected = SelectHighPerformanceAdapter(enumerator, acceptSoftware);
  return selected.mAdapter ? selected.mDescription.mName : "<none>";
}

TEST(AdapterSelectionTest, TakesTheFirstHardwareAdapterInOrder) {
  EXPECT_EQ(Choose({Adapter("discrete"), Adapter("integrated")}), "discrete");
  EXPECT_EQ(Choose({std::nullopt, Adapter("second")}), "second");
  EXPECT_EQ(Choose({}), "<none>");

  FakeEnumerator enumerator({Adapter("first"), Adapter("second")});
  SelectHighPerformanceAdapter(enumerator, false);
  EXPECT_EQ(enumerator.mEnumerated, 1U) << "the search ends at the first adapter taken";
}

TEST(AdapterSelectionTest, ReportsWhereInTheOrderTheAdapterTakenIs) {
  FakeEnumerator skipping({Adapter("software", AdapterDescription::kSoftwareFlag), std::nullopt,
                           Adapter("basic render", 0, 0x1414, 0x8C), Adapter("hardware")});
  EXPECT_EQ(SelectHighPerformanceAdapter(skipping, false).mIndex, 3U);
  FakeEnumerator first({Adapter("software", AdapterDescription::kSoftwareFlag), Adapter("hardware")});
  EXPECT_EQ(SelectHighPerformanceAdapter(first, true).mIndex, 0U);
}

TEST(AdapterSelectionTest, SkipsTheBasicRenderDriverAndSoftwareAdapters) {
  EXPECT_EQ(Choose({Adapter("basic render", 0, 0x1414, 0x8C), Adapter("real")}), "real");
  EXPECT_EQ(Choose({Adapter("other device of the same vendor", 0, 0x1414, 0x8D)}),
            "other device of the same vendor");
  EXPECT_EQ(Choose({Adapter("software", AdapterDescription::kSoftwareFlag), Adapter("hardware")}),
            "hardware");
  EXPECT_EQ(Choose({Adapter("software", AdapterDescription::kSoftwareFlag), std::nullopt}), "<none>");
  // The flags are compared for equality: the software bit together with another one passes.
  EXPECT_EQ(Choose({Adapter("software and remote", AdapterDescription::kSoftwareFlag | 1)}),
            "software and remote");
}

TEST(AdapterSelectionTest, AcceptsSoftwareAdaptersOnlyWhenAsked) {
  EXPECT_EQ(Choose({Adapter("software", AdapterDescription::kSoftwareFlag)}, true), "software");
  EXPECT_EQ(Choose({Adapter("basic render", AdapterDescription::kSoftwareFlag, 0x1414, 0x8C)}, true),
            "<none>");
}

TEST(PlatformAdapterTest, TestsCanReplaceThePlatformsAdapters) {
  {
    test::AdaptersReplaced replaced(
        {Adapter("software", AdapterDescription::kSoftwareFlag), Adapter("fake")});
    const SelectedAdapter selected = SelectPlatformAdapter();
    EXPECT_EQ(selected.mDescription.mName, "fake");
    EXPECT_EQ(selected.mIndex, 1U);
  }
  const SelectedAdapter platform = test::SelectTestAdapter();
  EXPECT_NE(platform.mAdapter ? platform.mDescription.mName : "", "fake") << "the platform's are back";
}

// The machine's own adapters: CI machines have a software rasterizer only, which is never chosen unless a
// test allows it, and which then reports device-local memory to size batches from.
TEST(PlatformAdapterTest, SoftwareRasterizerIsUsedOnlyWhenAccepted) {
  const std::string name = test::TestAdapterName();
  KIV_REQUIRE_TEST_DEVICE(!name.empty());
  const SelectedAdapter hardware = SelectPlatformAdapter();
  if (hardware.mAdapter) {
    GTEST_SKIP() << "this machine has a hardware adapter: " << hardware.mDescription.mName;
  }
  EXPECT_EQ(QueryAvailableVideoMemory(), 0U);

  test::SoftwareAdaptersAccepted accept;
  const SelectedAdapter software = SelectPlatformAdapter();
  ASSERT_TRUE(software.mAdapter);
  EXPECT_EQ(software.mDescription.mFlags, AdapterDescription::kSoftwareFlag);
  EXPECT_GT(QueryAvailableVideoMemory(), 0U) << software.mDescription.mName;
  EXPECT_TRUE(software.mAdapter->CreateD3D12Device());
}

}  // namespace
}  // namespace kivml::gpu
