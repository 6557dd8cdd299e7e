#include "gpu/GPUAdapterEnumerator.h"

namespace kivml::gpu {

namespace {

// Until DXGI enumeration lands here, Windows lists no adapter: GPU models run on the CPU.
class NoAdapters final : public GPUAdapterEnumerator {
 public:
  std::unique_ptr<GPUAdapter> EnumAdapter(size_t /*index*/) override { return nullptr; }
};

}  // namespace

std::unique_ptr<GPUAdapterEnumerator> CreatePlatformAdapterEnumerator() {
  return std::make_unique<NoAdapters>();
}

}  // namespace kivml::gpu
