#include "kivml/gpu/DX12HeapRecycler.h"

#include <gtest/gtest.h>

#include <memory>

#include "gpu/GpuTestSupport.h"
#include "kivcore/config/InitializerRegistrar.h"
#include "kivcore/threads/AsyncThreadedExecutor.h"
#include "kivml/gpu/DX12DefaultHeapRecycler.h"
#include "kivml/gpu/DX12UploadHeapRecycler.h"
#include "support/FutureChecks.h"

namespace kivml::gpu {
namespace {

// A pool of two heaps of 3 units + 100 bytes, of which three are leased (one made on demand).
template <class Pool>
void ExpectEveryHeapDescribedAs(D3D12_HEAP_TYPE type, const ComPtr<ID3D12Device>& device) {
  // The leases outlive the pool, so that they release their heaps here. Returned to a live pool, the heaps
  // would be destroyed on a worker once the pool had gone, perhaps as the process exits.
  std::shared_ptr<DX12HeapWrapper> leases[3];
  const auto pool = std::make_shared<Pool>(kivcore::threads::GetCPUBoundExecutor(), 2, 100, 3, device);
  ASSERT_EQ(pool->Initialize(), 2u);
  for (auto& lease : leases) {
    const auto leased = pool->GetBuffer();
    ASSERT_EQ(kivml::testing::ResultOf(leased), 0);
    lease = leased.Get();
    const D3D12_HEAP_DESC desc = lease->GetHeap()->GetDesc();
    EXPECT_EQ(desc.SizeInBytes, 3u * 65536 + 100);
    EXPECT_EQ(desc.Properties.Type, type);
    EXPECT_EQ(desc.Alignment, 65536u);
    EXPECT_EQ(desc.Flags, D3D12_HEAP_FLAG_ALLOW_ONLY_BUFFERS);
  }
}

TEST(DX12HeapRecyclerTest, PoolsMakeBufferHeapsOfTheirType) {
  ASSERT_TRUE(kivcore::config::RunInitializers());
  const ComPtr<ID3D12Device> device = test::CreateTestDevice();
  KIV_REQUIRE_TEST_DEVICE(device);
  ExpectEveryHeapDescribedAs<DX12DefaultHeapRecycler>(D3D12_HEAP_TYPE_DEFAULT, device);
  ExpectEveryHeapDescribedAs<DX12UploadHeapRecycler>(D3D12_HEAP_TYPE_UPLOAD, device);
}

}  // namespace
}  // namespace kivml::gpu
