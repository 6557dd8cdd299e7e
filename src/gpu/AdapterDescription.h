#pragma once

#include <cstdint>
#include <string>

namespace kivml::gpu {

// What adapter choice looks at, in the terms of DXGI's adapter description: other platforms map their
// own device properties onto it.
struct AdapterDescription {
  // The flags value of a software adapter. Adapter choice compares the flags for equality with it.
  static constexpr uint32_t kSoftwareFlag = 2;
  // The basic render driver: a software rasterizer that some platforms list like hardware.
  static constexpr uint32_t kBasicRenderVendorId = 0x1414;
  static constexpr uint32_t kBasicRenderDeviceId = 0x8C;

  uint32_t mVendorId = 0;
  uint32_t mDeviceId = 0;
  uint32_t mFlags = 0;
  std::string mName;  // UTF-8
};

}  // namespace kivml::gpu
