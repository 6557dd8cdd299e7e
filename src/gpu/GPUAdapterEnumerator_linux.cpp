// Adapters over Vulkan, listed in the order ONNX Runtime's WebGPU provider ranks them (WebGPUAdapterOrder.h):
// the first one is the adapter GPU models run on, and devices the provider refuses are left out. CPU
// devices (software rasterizers such as llvmpipe) are described as software adapters. Direct3D 12 devices
// come from vkd3d on the same physical device.
#include <vkd3d.h>
#include <vulkan/vulkan.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <span>
#include <vector>

#include "gpu/GPUAdapterEnumerator.h"
#include "gpu/WebGPUAdapterOrder.h"
#include "kivcore/config/kiv_exception.h"

namespace kivml::gpu {

namespace {

using DeviceUuid = std::array<uint8_t, VK_UUID_SIZE>;

class VulkanInstance {
 public:
  // Null when the loader finds no driver: the platform then simply has no adapters.
  static std::shared_ptr<VulkanInstance> Create() {
    VkApplicationInfo application{};
    application.sType = VK_STRUCTURE_TYPE_APPLICATION_INFO;
    application.pApplicationName = "kivmachinelearning";
    application.apiVersion = VK_API_VERSION_1_1;  // for the *2 property queries
    VkInstanceCreateInfo info{};
    info.sType = VK_STRUCTURE_TYPE_INSTANCE_CREATE_INFO;
    info.pApplicationInfo = &application;
    VkInstance instance = VK_NULL_HANDLE;
    if (vkCreateInstance(&info, nullptr, &instance) != VK_SUCCESS) {
      return nullptr;
    }
    return std::make_shared<VulkanInstance>(instance);
  }

  explicit VulkanInstance(VkInstance instance) : mInstance(instance) {}
  ~VulkanInstance() { vkDestroyInstance(mInstance, nullptr); }
  VulkanInstance(const VulkanInstance&) = delete;
  VulkanInstance& operator=(const VulkanInstance&) = delete;

  VkInstance Get() const { return mInstance; }

 private:
  VkInstance mInstance;
};

std::vector<VkPhysicalDevice> ListPhysicalDevices(VkInstance instance) {
  uint32_t count = 0;
  if (vkEnumeratePhysicalDevices(instance, &count, nullptr) != VK_SUCCESS) {
    return {};
  }
  std::vector<VkPhysicalDevice> devices(count);
  if (vkEnumeratePhysicalDevices(instance, &count, devices.data()) < 0) {
    return {};
  }
  devices.resize(count);
  return devices;
}

// Dawn's rank of an adapter type under a high-performance request. Dawn knows no virtual GPUs: they rank
// with the devices of unknown type, after CPU devices.
int DawnRank(VkPhysicalDeviceType type) {
  switch (type) {
    case VK_PHYSICAL_DEVICE_TYPE_DISCRETE_GPU:
      return 0;
    case VK_PHYSICAL_DEVICE_TYPE_INTEGRATED_GPU:
      return 1;
    case VK_PHYSICAL_DEVICE_TYPE_CPU:
      return 2;
    default:
      return 3;
  }
}

DeviceUuid ReadDeviceUuid(VkPhysicalDevice device) {
  VkPhysicalDeviceIDProperties ids{};
  ids.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_ID_PROPERTIES;
  VkPhysicalDeviceProperties2 properties{};
  properties.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_PROPERTIES_2;
  properties.pNext = &ids;
  vkGetPhysicalDeviceProperties2(device, &properties);
  DeviceUuid uuid{};
  std::memcpy(uuid.data(), ids.deviceUUID, uuid.size());
  return uuid;
}

bool HasDeviceExtension(VkPhysicalDevice device, const char* name) {
  uint32_t count = 0;
  if (vkEnumerateDeviceExtensionProperties(device, nullptr, &count, nullptr) != VK_SUCCESS) {
    return false;
  }
  std::vector<VkExtensionProperties> extensions(count);
  if (vkEnumerateDeviceExtensionProperties(device, nullptr, &count, extensions.data()) < 0) {
    return false;
  }
  return std::any_of(extensions.begin(), extensions.begin() + count,
                     [&](const VkExtensionProperties& e) { return std::strcmp(e.extensionName, name) == 0; });
}

// vkd3d signals Win32 events only for fence waits, which these devices never set up.
HRESULT SignalEvent(HANDLE /*event*/) {
  return E_NOTIMPL;
}

class VulkanAdapter final : public GPUAdapter {
 public:
  VulkanAdapter(std::shared_ptr<VulkanInstance> instance, VkPhysicalDevice device)
      : mInstance(std::move(instance)), mDevice(device) {}

  std::optional<AdapterDescription> ReadDescription() override {
    VkPhysicalDeviceProperties properties{};
    vkGetPhysicalDeviceProperties(mDevice, &properties);
    AdapterDescription description;
    description.mVendorId = properties.vendorID;
    description.mDeviceId = properties.deviceID;
    description.mFlags =
        properties.deviceType == VK_PHYSICAL_DEVICE_TYPE_CPU ? AdapterDescription::kSoftwareFlag : 0;
    description.mName = properties.deviceName;
    return description;
  }

  uint64_t QueryAvailableMemory() noexcept override {
    if (!HasDeviceExtension(mDevice, VK_EXT_MEMORY_BUDGET_EXTENSION_NAME)) {
      return 0;
    }
    VkPhysicalDeviceMemoryBudgetPropertiesEXT budget{};
    budget.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_MEMORY_BUDGET_PROPERTIES_EXT;
    VkPhysicalDeviceMemoryProperties2 memory{};
    memory.sType = VK_STRUCTURE_TYPE_PHYSICAL_DEVICE_MEMORY_PROPERTIES_2;
    memory.pNext = &budget;
    vkGetPhysicalDeviceMemoryProperties2(mDevice, &memory);
    // The largest device-local heap is the adapter's video memory; smaller ones are windows into it.
    const VkPhysicalDeviceMemoryProperties& properties = memory.memoryProperties;
    std::optional<uint32_t> local;
    for (uint32_t heap = 0; heap < properties.memoryHeapCount; ++heap) {
      if ((properties.memoryHeaps[heap].flags & VK_MEMORY_HEAP_DEVICE_LOCAL_BIT) != 0 &&
          (!local || properties.memoryHeaps[heap].size > properties.memoryHeaps[*local].size)) {
        local = heap;
      }
    }
    if (!local || budget.heapBudget[*local] <= budget.heapUsage[*local]) {
      return 0;
    }
    return budget.heapBudget[*local] - budget.heapUsage[*local];
  }

  ComPtr<ID3D12Device> CreateD3D12Device() override {
    // vkd3d makes its own Vulkan instance; the same device is found in it by its UUID.
    vkd3d_instance_create_info instanceInfo{};
    instanceInfo.type = VKD3D_STRUCTURE_TYPE_INSTANCE_CREATE_INFO;
    instanceInfo.pfn_signal_event = SignalEvent;
    instanceInfo.wchar_size = sizeof(WCHAR);
    vkd3d_instance* instance = nullptr;
    HRESULT result = vkd3d_create_instance(&instanceInfo, &instance);
    if (FAILED(result)) {
      throw kivcore::kiv_exception("vkd3d_create_instance failed.", result);
    }
    const std::unique_ptr<vkd3d_instance, decltype(&vkd3d_instance_decref)> instanceRef(
        instance, &vkd3d_instance_decref);

    const DeviceUuid wanted = ReadDeviceUuid(mDevice);
    VkPhysicalDevice match = VK_NULL_HANDLE;
    for (VkPhysicalDevice device : ListPhysicalDevices(vkd3d_instance_get_vk_instance(instance))) {
      if (ReadDeviceUuid(device) == wanted) {
        match = device;
        break;
      }
    }
    if (match == VK_NULL_HANDLE) {
      throw kivcore::kiv_exception("vkd3d does not see the selected adapter.", E_FAIL);
    }

    vkd3d_device_create_info deviceInfo{};
    deviceInfo.type = VKD3D_STRUCTURE_TYPE_DEVICE_CREATE_INFO;
    deviceInfo.minimum_feature_level = D3D_FEATURE_LEVEL_11_0;
    deviceInfo.instance = instance;  // the device takes its own reference
    deviceInfo.vk_physical_device = match;
    ID3D12Device* device = nullptr;
    result = vkd3d_create_device(&deviceInfo, IID_ID3D12Device, reinterpret_cast<void**>(&device));
    if (FAILED(result)) {
      throw kivcore::kiv_exception("D3D12CreateDevice failed.", result);
    }
    return AdoptCom(device);
  }

 private:
  std::shared_ptr<VulkanInstance> mInstance;  // keeps mDevice valid
  VkPhysicalDevice mDevice;
};

class VulkanAdapterEnumerator final : public GPUAdapterEnumerator {
 public:
  VulkanAdapterEnumerator() : mInstance(VulkanInstance::Create()) {
    if (!mInstance) {
      return;
    }
    const std::vector<VkPhysicalDevice> devices = ListPhysicalDevices(mInstance->Get());
    std::vector<VulkanDeviceTraits> traits;
    for (VkPhysicalDevice device : devices) {
      VkPhysicalDeviceProperties properties{};
      vkGetPhysicalDeviceProperties(device, &properties);
      VkPhysicalDeviceFeatures features{};
      vkGetPhysicalDeviceFeatures(device, &features);
      traits.push_back({properties.deviceType, DawnCanUse(properties, features)});
    }
    for (size_t position : WebGPUAdapterOrder(traits)) {
      mDevices.push_back(devices[position]);
    }
  }

  std::unique_ptr<GPUAdapter> EnumAdapter(size_t index) override {
    if (index >= mDevices.size()) {
      return nullptr;
    }
    return std::make_unique<VulkanAdapter>(mInstance, mDevices[index]);
  }

 private:
  std::shared_ptr<VulkanInstance> mInstance;
  std::vector<VkPhysicalDevice> mDevices;
};

}  // namespace

bool DawnCanUse(const VkPhysicalDeviceProperties& properties, const VkPhysicalDeviceFeatures& features) {
  const bool compression =
      features.textureCompressionBC == VK_TRUE ||
      (features.textureCompressionETC2 == VK_TRUE && features.textureCompressionASTC_LDR == VK_TRUE);
  const VkBool32 required[] = {
      features.robustBufferAccess,
      features.shaderUniformBufferArrayDynamicIndexing,
      features.shaderStorageBufferArrayDynamicIndexing,
      features.shaderSampledImageArrayDynamicIndexing,
      features.shaderStorageImageArrayDynamicIndexing,
      features.fragmentStoresAndAtomics,
      features.fullDrawIndexUint32,
      // Without these Dawn offers the device for the compatibility level only, which the provider does not
      // ask for.
      features.depthBiasClamp,
      features.imageCubeArray,
      features.independentBlend,
      features.sampleRateShading,
  };
  return properties.apiVersion >= VK_API_VERSION_1_1 && compression &&
         std::all_of(std::begin(required), std::end(required),
                     [](VkBool32 feature) { return feature == VK_TRUE; });
}

std::vector<size_t> WebGPUAdapterOrder(std::span<const VulkanDeviceTraits> devices) {
  std::vector<size_t> order;
  for (size_t position = 0; position < devices.size(); ++position) {
    if (devices[position].mDawnUsable) {
      order.push_back(position);
    }
  }
  // Dawn sorts with std::sort, which on lists as short as a machine's devices (insertion sort) keeps
  // equals in their order, as this does on any list.
  std::stable_sort(order.begin(), order.end(), [&](size_t a, size_t b) {
    return DawnRank(devices[a].mType) < DawnRank(devices[b].mType);
  });
  return order;
}

std::unique_ptr<GPUAdapterEnumerator> CreatePlatformAdapterEnumerator() {
  return std::make_unique<VulkanAdapterEnumerator>();
}

}  // namespace kivml::gpu
