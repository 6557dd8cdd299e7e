#include "features/D3D12ResourceFeature.h"

#include <gtest/gtest.h>

#include <vector>

#include "gpu/GpuTestSupport.h"
#include "kivml/ITensorMLFeatureAccessor.h"
#include "kivml/features/CreateD3D12ResourceFeature.h"
#include "kivml/gpu/DX12HeapWrapper.h"

namespace kivml::features {
namespace {

TEST(D3D12ResourceFeatureTest, ExposesItsBufferAndShapeAndAnswersItsInterfaces) {
  const gpu::ComPtr<ID3D12Device> device = gpu::test::CreateTestDevice();
  KIV_REQUIRE_TEST_DEVICE(device);
  D3D12_HEAP_DESC heapDesc{};
  heapDesc.SizeInBytes = 65536;
  heapDesc.Properties.Type = D3D12_HEAP_TYPE_DEFAULT;
  heapDesc.Flags = D3D12_HEAP_FLAG_ALLOW_ONLY_BUFFERS;
  constexpr uint64_t kHeight = 3;
  constexpr uint64_t kWidth = 5;
  const auto resource = gpu::DX12HeapWrapper::Create(heapDesc, device)->CreateResource(kHeight * kWidth);

  const auto feature = CreateD3D12ResourceFeature(resource, ShapeType{kHeight, kWidth});
  ASSERT_TRUE(feature);
  const ShapeType shape = feature->GetShape();
  EXPECT_EQ(std::vector<uint64_t>(shape.begin(), shape.end()), (std::vector<uint64_t>{kHeight, kWidth}));
  EXPECT_EQ(feature->GetID3D12Resource().get(), resource->GetResource().get());

  const auto asFeature = feature.Query<IMLFeature>();
  ASSERT_TRUE(asFeature);
  EXPECT_EQ(feature->GetFeatureRef(), asFeature);
  EXPECT_EQ(asFeature.Query<ID3D12ResourceFeature>(), feature);
  EXPECT_TRUE(feature.Query<kivcore::classref::UnknownBase>());
  EXPECT_FALSE(feature.Query<ITensorMLFeatureAccessor>());
}

}  // namespace
}  // namespace kivml::features
