// Linux lists Vulkan devices as ONNX Runtime's WebGPU provider (Dawn) ranks them, so that the adapter
// taken first is the one GPU models run on.

#include <gtest/gtest.h>

#include <vector>

#include "gpu/WebGPUAdapterOrder.h"

namespace kivml::gpu {
namespace {

TEST(WebGPUAdapterOrderTest, RanksDevicesAsDawnsHighPerformanceRequest) {
  const VulkanDeviceTraits devices[] = {
      {VK_PHYSICAL_DEVICE_TYPE_VIRTUAL_GPU, true},     // 0
      {VK_PHYSICAL_DEVICE_TYPE_CPU, true},             // 1
      {VK_PHYSICAL_DEVICE_TYPE_INTEGRATED_GPU, true},  // 2
      {VK_PHYSICAL_DEVICE_TYPE_DISCRETE_GPU, false},   // 3: one Dawn refuses
      {VK_PHYSICAL_DEVICE_TYPE_OTHER, true},           // 4
      {VK_PHYSICAL_DEVICE_TYPE_DISCRETE_GPU, true},    // 5
      {VK_PHYSICAL_DEVICE_TYPE_INTEGRATED_GPU, true},  // 6
  };
  // A software rasterizer (CPU) ranks before a virtual GPU; virtual and other devices share a rank.
  EXPECT_EQ(WebGPUAdapterOrder(devices), (std::vector<size_t>{5, 2, 6, 1, 0, 4}));
  EXPECT_TRUE(WebGPUAdapterOrder({}).empty());
}

TEST(WebGPUAdapterOrderTest, DawnNeedsVulkan11AndBlockCompressionOrBothMobileFormats) {
  VkPhysicalDeviceProperties properties{};
  properties.apiVersion = VK_API_VERSION_1_1;
  VkPhysicalDeviceFeatures features{};
  for (VkBool32* feature :
       {&features.robustBufferAccess, &features.textureCompressionBC,
        &features.shaderUniformBufferArrayDynamicIndexing, &features.shaderStorageBufferArrayDynamicIndexing,
        &features.shaderSampledImageArrayDynamicIndexing, &features.shaderStorageImageArrayDynamicIndexing,
        &features.fragmentStoresAndAtomics, &features.fullDrawIndexUint32, &features.depthBiasClamp,
        &features.imageCubeArray, &features.independentBlend, &features.sampleRateShading}) {
    *feature = VK_TRUE;
  }
  EXPECT_TRUE(DawnCanUse(properties, features));

  features.textureCompressionBC = VK_FALSE;
  features.textureCompressionETC2 = VK_TRUE;
  EXPECT_FALSE(DawnCanUse(properties, features)) << "ETC2 without ASTC";
  features.textureCompressionASTC_LDR = VK_TRUE;
  EXPECT_TRUE(DawnCanUse(properties, features));

  features.robustBufferAccess = VK_FALSE;
  EXPECT_FALSE(DawnCanUse(properties, features));
  features.robustBufferAccess = VK_TRUE;
  properties.apiVersion = VK_API_VERSION_1_0;
  EXPECT_FALSE(DawnCanUse(properties, features));
}

}  // namespace
}  // namespace kivml::gpu
