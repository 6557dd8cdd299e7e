#include "kivml/gpu/DX12IntegratedUploader.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "gpu/GpuTestSupport.h"
#include "kivcore/config/InitializerRegistrar.h"
#include "kivcore/config/ResultCodes.h"
#include "kivcore/threads/AsyncThreadedExecutor.h"
#include "kivml/ITensorMLFeatureAccessor.h"
#include "kivml/features/ID3D12ResourceFeature.h"
#include "kivml/utility/TensorFactories.h"
#include "support/FakeTensorDescription.h"
#include "support/FutureChecks.h"

namespace kivml::gpu {
namespace {

using kivcore::utility::ImmutableString;
using kivml::testing::MessageOf;
using kivml::testing::ResultOf;
using Features = DX12IntegratedUploader::FeatureContainerVector;
using Descriptions = DX12IntegratedUploader::FeatureDescriptionMap;

constexpr uint64_t kUnit = 65536;

// Keeps the heaps it makes; the upload's completion orders reading them after their making.
struct RecordingPool : DX12UploadHeapRecycler {
  using DX12UploadHeapRecycler::DX12UploadHeapRecycler;
  std::shared_ptr<DX12HeapWrapper> CreateBuffer() override {
    return mHeaps.emplace_back(DX12UploadHeapRecycler::CreateBuffer());
  }
  std::vector<std::shared_ptr<DX12HeapWrapper>> mHeaps;
};
// Upload heaps in name only: the CPU cannot reach them.
struct GpuOnlyPool : DX12UploadHeapRecycler {
  using DX12UploadHeapRecycler::DX12UploadHeapRecycler;
  D3D12_HEAP_DESC GetHeapDesc() const override {
    D3D12_HEAP_DESC desc = DX12UploadHeapRecycler::GetHeapDesc();
    desc.Properties.Type = D3D12_HEAP_TYPE_DEFAULT;
    return desc;
  }
};
struct BarrenPool : DX12UploadHeapRecycler {
  using DX12UploadHeapRecycler::DX12UploadHeapRecycler;
  std::shared_ptr<DX12HeapWrapper> CreateBuffer() override { return nullptr; }
};
struct StoppableUploader : DX12IntegratedUploader {
  using DX12IntegratedUploader::DX12IntegratedUploader;
  void ShutDownQueue() { mUploadQueue->Shutdown(); }
};

// A float vector of `count` elements, every byte `fill`.
IMLEvaluator::FeatureContainer FloatVector(const char* name, size_t count, int fill = 1) {
  auto memory = kivcore::allocator::RecycledMemory::Create(count * sizeof(float));
  std::memset(memory->Buffer(), fill, memory->Size());
  return {ImmutableString::Create(name),
          utility::CreatePackedTensor(std::move(memory), sizeof(float), ShapeType{count})};
}

void Describe(Descriptions& descriptions, const char* name, size_t count) {
  descriptions[ImmutableString::Create(name)] = kivml::testing::MakeDescription(
      name, features::kFloat32TensorFeatureType, {static_cast<int64_t>(count)});
}

class DX12IntegratedUploaderTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { ASSERT_TRUE(kivcore::config::RunInitializers()); }

  // A fresh pool for every upload: placements never give space back, so a reused heap fills up.
  template <class Pool = DX12UploadHeapRecycler>
  std::shared_ptr<Pool> MakePool(size_t heapUnits) {
    return std::make_shared<Pool>(mExecutor, 1, 0, heapUnits, mDevice);
  }
  template <class Uploader = DX12IntegratedUploader>
  std::shared_ptr<Uploader> MakeUploader(std::shared_ptr<DX12UploadHeapRecycler> pool) {
    return std::make_shared<Uploader>(mExecutor, std::move(pool), mDevice);
  }

  // Uploads "x" of `count` floats, described as `describedCount` floats named `describedName`. Queued
  // uploads hold the uploader weakly, so it is kept until the upload is done.
  kivcore::async::Future<Features> UploadOne(const std::shared_ptr<DX12UploadHeapRecycler>& pool,
                                             size_t count, size_t describedCount,
                                             const char* describedName = "x") {
    Descriptions descriptions;
    Describe(descriptions, describedName, describedCount);
    const auto uploader = MakeUploader(pool);
    auto upload = uploader->UploadCPUTensors(Features{FloatVector("x", count)}, std::move(descriptions));
    upload.WaitFor(kivml::testing::kFutureTimeout);
    return upload;
  }

  const ComPtr<ID3D12Device> mDevice = test::CreateTestDevice();
  const std::shared_ptr<kivcore::async::AsyncExecutor> mExecutor = kivcore::threads::GetCPUBoundExecutor();
};

TEST_F(DX12IntegratedUploaderTest, PlacesEveryTensorOfACallInOneHeapInOrder) {
  KIV_REQUIRE_TEST_DEVICE(mDevice);
  // The empty call leases a heap too, and gives it back after its future completes: a pool of its own
  // keeps that return from racing the call below.
  const auto emptyUploader = DX12IntegratedUploader::Create(mExecutor, MakePool(1), mDevice);
  const auto nothing = emptyUploader->UploadCPUTensors({}, {});
  ASSERT_EQ(ResultOf(nothing), 0);
  EXPECT_TRUE(nothing.Get().empty());

  const auto pool = MakePool<RecordingPool>(8);
  const auto uploader = DX12IntegratedUploader::Create(mExecutor, pool, mDevice);

  // The first is just over a unit, so the second starts two units in.
  const size_t counts[] = {kUnit / sizeof(float) + 1, 2, 3, 4};
  Features features;
  Descriptions descriptions;
  for (int i = 0; i < 4; ++i) {
    const std::string name(1, static_cast<char>('a' + i));
    features.push_back(FloatVector(name.c_str(), counts[i], i + 1));
    Describe(descriptions, name.c_str(), counts[i]);
  }
  const Features cpuFeatures = features;
  const auto upload = uploader->UploadCPUTensors(std::move(features), std::move(descriptions));
  ASSERT_EQ(ResultOf(upload), 0) << MessageOf(upload);
  ASSERT_EQ(upload.Get().size(), 4u);
  for (size_t i = 0; i < 4; ++i) {
    EXPECT_EQ(upload.Get()[i].mFeatureName, cpuFeatures[i].mFeatureName);
    const auto gpu = upload.Get()[i].mFeature.Query<features::ID3D12ResourceFeature>();
    ASSERT_TRUE(gpu);
    EXPECT_EQ(gpu->GetShape(), ShapeType{counts[i]});
    const auto copy = DX12ResourceWrapper(gpu->GetID3D12Resource(), nullptr).CopyFromResource();
    ASSERT_EQ(copy->Size(), counts[i] * sizeof(float));
    const auto cpu = cpuFeatures[i].mFeature.Query<ITensorMLFeatureAccessor>();
    EXPECT_EQ(std::memcmp(copy->Buffer(), cpu->GetData(), copy->Size()), 0);
  }
  ASSERT_EQ(pool->mHeaps.size(), 1u);
  EXPECT_EQ(pool->mHeaps[0]->GetNextOffset(), 2 * kUnit + 3 * kUnit);

  // The buffers hold the call's lease: while they live, the pool has to make another heap.
  auto another = pool->GetBuffer();
  ASSERT_EQ(ResultOf(another), 0) << MessageOf(another);
  EXPECT_NE(another.Get(), pool->mHeaps[0]);
  EXPECT_EQ(pool->mHeaps.size(), 2u);
}

TEST_F(DX12IntegratedUploaderTest, FailsAsAWholeWithTheCause) {
  KIV_REQUIRE_TEST_DEVICE(mDevice);
  const auto unknown = UploadOne(MakePool(1), 4, 4, "y");
  EXPECT_THROW(unknown.Get(), std::out_of_range);
  EXPECT_EQ(MessageOf(unknown), "invalid map<K, T> key");
  EXPECT_EQ(MessageOf(UploadOne(MakePool(1), kUnit, kUnit)), "CreatePlacedResource failed.");
  EXPECT_EQ(MessageOf(UploadOne(MakePool<GpuOnlyPool>(1), 4, 4)),
            "MapResource() error: The CPU cannot access the provided heap.");
  EXPECT_EQ(ResultOf(UploadOne(MakePool<BarrenPool>(1), 4, 4)), kivcore::config::eBadAllocException);
  EXPECT_EQ(MessageOf(UploadOne(MakePool(0), 4, 4)), "CreateHeap failed.");
  EXPECT_EQ(ResultOf(UploadOne(MakePool(1), 3, 4)), kivcore::config::eInvalidArgument);

  const auto uploader = MakeUploader<StoppableUploader>(MakePool(1));
  Descriptions descriptions;
  Describe(descriptions, "x", 4);
  const auto empty =
      uploader->UploadCPUTensors(Features{{ImmutableString::Create("x"), nullptr}}, descriptions);
  ASSERT_EQ(ResultOf(empty), kivcore::config::eNullPtrException);
  EXPECT_NE(MessageOf(empty).find("ITensorMLFeatureAccessor"), std::string::npos);
  uploader->ShutDownQueue();
  EXPECT_EQ(MessageOf(uploader->UploadCPUTensors({}, {})), "Executor Is Terminated");

  DX12IntegratedUploader unowned(mExecutor, MakePool(1), mDevice);
  EXPECT_THROW(unowned.UploadCPUTensors({}, {}), std::bad_weak_ptr);
}

}  // namespace
}  // namespace kivml::gpu
