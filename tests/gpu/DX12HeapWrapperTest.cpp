#include "kivml/gpu/DX12HeapWrapper.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "gpu/GpuTestSupport.h"
#include "kivcore/config/kiv_exception.h"

namespace kivml::gpu {
namespace {

constexpr uint64_t kUnit = 65536;

// The failure's message and result code; empty and 0 when `call` throws no kiv_exception.
template <class Call>
std::pair<std::string, int> FailureOf(Call call) {
  try {
    call();
  } catch (const kivcore::kiv_exception& exception) {
    return {exception.what(), exception.GetResult()};
  }
  return {};
}

class DX12HeapWrapperTest : public ::testing::Test {
 protected:
  static D3D12_HEAP_DESC BufferHeapDesc(D3D12_HEAP_TYPE type, uint64_t sizeInBytes) {
    D3D12_HEAP_DESC desc{};
    desc.SizeInBytes = sizeInBytes;
    desc.Properties.Type = type;
    desc.Alignment = kUnit;
    desc.Flags = D3D12_HEAP_FLAG_ALLOW_ONLY_BUFFERS;
    return desc;
  }
  std::shared_ptr<DX12HeapWrapper> MakeHeap(D3D12_HEAP_TYPE type, uint64_t sizeInBytes) {
    return DX12HeapWrapper::Create(BufferHeapDesc(type, sizeInBytes), mDevice);
  }

  const ComPtr<ID3D12Device> mDevice = test::CreateTestDevice();
};

TEST_F(DX12HeapWrapperTest, PlacesBuffersInWholeUnitsAndRefusesThemPastTheEnd) {
  KIV_REQUIRE_TEST_DEVICE(mDevice);
  const D3D12_HEAP_DESC heapDesc = BufferHeapDesc(D3D12_HEAP_TYPE_UPLOAD, 4 * kUnit);
  const auto heap = DX12HeapWrapper::Create(heapDesc, mDevice);
  const D3D12_HEAP_DESC reported = heap->GetHeap()->GetDesc();
  EXPECT_EQ(reported.SizeInBytes, heapDesc.SizeInBytes);
  EXPECT_EQ(reported.Properties.Type, heapDesc.Properties.Type);
  EXPECT_EQ(reported.Alignment, heapDesc.Alignment);
  EXPECT_EQ(reported.Flags, heapDesc.Flags);

  const auto one = heap->CreateResource(1);
  EXPECT_EQ(heap->GetNextOffset(), kUnit);
  const auto justOver = heap->CreateResource(kUnit + 1);
  EXPECT_EQ(heap->GetNextOffset(), 3 * kUnit);
  const D3D12_RESOURCE_DESC desc = justOver->GetResource()->GetDesc();
  EXPECT_EQ(desc.Dimension, D3D12_RESOURCE_DIMENSION_BUFFER);
  EXPECT_EQ(desc.Width, kUnit + 1);
  EXPECT_EQ(desc.Height, 1u);
  EXPECT_EQ(desc.Flags, D3D12_RESOURCE_FLAG_NONE);

  EXPECT_EQ(FailureOf([&] { heap->CreateResource(kUnit + 1); }),
            std::make_pair(std::string("CreatePlacedResource failed."), static_cast<int>(E_INVALIDARG)));
  EXPECT_EQ(heap->GetNextOffset(), 3 * kUnit);
  EXPECT_NE(heap->CreateResource(kUnit), nullptr);

  // Only a heap owned by a std::shared_ptr can be placed in; the refusal costs no space.
  DX12HeapWrapper unowned(heap->GetHeap(), mDevice);
  EXPECT_THROW(unowned.CreateResource(1), std::bad_weak_ptr);
  EXPECT_EQ(unowned.GetNextOffset(), 0u);

  EXPECT_EQ(FailureOf([&] { MakeHeap(D3D12_HEAP_TYPE_UPLOAD, 0); }),
            std::make_pair(std::string("CreateHeap failed."), static_cast<int>(E_INVALIDARG)));
}

TEST_F(DX12HeapWrapperTest, CopiesOnlyWhereTheCPUReachesTheHeap) {
  KIV_REQUIRE_TEST_DEVICE(mDevice);
  std::vector<uint8_t> bytes(1000);
  for (size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<uint8_t>(i * 7 + 3);
  }
  auto heap = MakeHeap(D3D12_HEAP_TYPE_UPLOAD, kUnit);
  const std::weak_ptr<DX12HeapWrapper> watch = heap;
  auto upload = heap->CreateResource(bytes.size());
  heap.reset();
  ASSERT_FALSE(watch.expired());  // the resource holds it
  upload->CopyToResource(bytes.data(), bytes.size());
  const auto copy = upload->CopyFromResource();
  ASSERT_EQ(copy->Size(), bytes.size());
  EXPECT_EQ(std::memcmp(copy->Buffer(), bytes.data(), bytes.size()), 0);
  upload.reset();
  EXPECT_TRUE(watch.expired());

  const auto gpuOnly = MakeHeap(D3D12_HEAP_TYPE_DEFAULT, kUnit)->CreateResource(bytes.size());
  const auto refused =
      std::make_pair(std::string("MapResource() error: The CPU cannot access the provided heap."),
                     static_cast<int>(E_INVALIDARG));
  EXPECT_EQ(FailureOf([&] { gpuOnly->CopyToResource(bytes.data(), bytes.size()); }), refused);
  EXPECT_EQ(FailureOf([&] { gpuOnly->CopyFromResource(); }), refused);
}

TEST_F(DX12HeapWrapperTest, ConcurrentPlacementsTakeOneUnitEach) {
  KIV_REQUIRE_TEST_DEVICE(mDevice);
  const auto heap = MakeHeap(D3D12_HEAP_TYPE_UPLOAD, 32 * kUnit);
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([&heap] {
      for (int i = 0; i < 8; ++i) {
        heap->CreateResource(4);
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(heap->GetNextOffset(), 32 * kUnit);
}

}  // namespace
}  // namespace kivml::gpu
