#pragma once
// The order of the Vulkan devices on Linux. GPU models run on ONNX Runtime's WebGPU provider, which cannot
// be handed an adapter: Dawn, inside it, runs on the first device of its own ranking for a high-performance
// request. Listing the devices in that ranking makes the first adapter of the platform's order the one GPU
// models run on.

#include <vulkan/vulkan.h>

#include <cstddef>
#include <span>
#include <vector>

namespace kivml::gpu {

struct VulkanDeviceTraits {
  VkPhysicalDeviceType mType = VK_PHYSICAL_DEVICE_TYPE_OTHER;
  bool mDawnUsable = false;  // see DawnCanUse
};

// Whether Dawn offers the device for WebGPU's core feature level: Vulkan 1.1 and the features Dawn
// requires of every device. The minimum limits Dawn checks as well, which desktop devices exceed, are
// left out.
bool DawnCanUse(const VkPhysicalDeviceProperties& properties, const VkPhysicalDeviceFeatures& features);

// Positions in `devices` (the Vulkan loader's order) of the devices Dawn offers, in the order its
// high-performance request ranks them: discrete, integrated, CPU, then virtual and other ones together;
// devices of the same rank keep the loader's order.
std::vector<size_t> WebGPUAdapterOrder(std::span<const VulkanDeviceTraits> devices);

}  // namespace kivml::gpu
