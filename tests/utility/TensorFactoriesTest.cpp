#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "kivcore/config/NullPtrException.h"
#include "kivml/ITensorMLFeatureAccessor.h"
#include "kivml/ITensorMLFeatureModifier.h"
#include "kivml/utility/TensorFactories.h"
#include "support/FakeTensorDescription.h"

namespace kivml::utility {
namespace {

using kivcore::allocator::RecycledMemory;
using kivcore::classref::InterfaceRef;

std::vector<uint64_t> ToVector(const ShapeType& values) {
  return {values.begin(), values.end()};
}

InterfaceRef<ITensorMLFeatureAccessor> Accessor(const InterfaceRef<IMLFeature>& feature) {
  return feature.Query<ITensorMLFeatureAccessor>();
}

TEST(TensorFactoriesTest, TensorSharesItsBufferAndReportsWhatItWasGiven) {
  auto memory = RecycledMemory::Create(36);
  const auto feature = CreateTensor(memory, 4, ShapeType{3, 3}, StrideType{99, 7});
  const auto tensor = Accessor(feature);
  ASSERT_TRUE(tensor);
  EXPECT_EQ(tensor->GetCount(), 9u);
  EXPECT_EQ(ToVector(tensor->GetShape()), (std::vector<uint64_t>{3, 3}));
  EXPECT_EQ(ToVector(tensor->GetStrides()), (std::vector<uint64_t>{99, 7}));  // kept, not recomputed
  EXPECT_EQ(tensor->GetDataTypeSize(), 4u);
  EXPECT_EQ(tensor->GetData(), memory->Buffer());

  // Writes through the modifier are seen by every holder of the buffer.
  auto* data = static_cast<float*>(feature.Query<ITensorMLFeatureModifier>()->GetMutableData());
  data[8] = 42.0f;
  float last = 0;
  std::memcpy(&last, memory->Buffer() + 32, sizeof(last));
  EXPECT_EQ(last, 42.0f);
}

TEST(TensorFactoriesTest, CountComesFromTheBufferNotTheShape) {
  EXPECT_EQ(Accessor(CreatePackedTensor(RecycledMemory::Create(40), 4, ShapeType{3, 3}))->GetCount(), 10u);
  const auto empty = Accessor(CreatePackedTensor(RecycledMemory::Create(0), 4, ShapeType{3}));
  EXPECT_EQ(empty->GetCount(), 0u);
  EXPECT_EQ(empty->GetData(), nullptr);
  EXPECT_EQ(empty.Query<ITensorMLFeatureModifier>()->GetMutableData(), nullptr);
  EXPECT_EQ(Accessor(CreatePackedTensor(nullptr, 4, ShapeType{3}))->GetCount(), 0u);
  EXPECT_EQ(Accessor(CreatePackedTensor(RecycledMemory::Create(36), 0, ShapeType{9}))->GetCount(), 0u);
}

TEST(TensorFactoriesTest, PackedTensorDerivesStridesAndAnswersItsInterfaces) {
  const auto feature = CreatePackedTensor(RecycledMemory::Create(600), 4, ShapeType{3, 5, 10});
  EXPECT_EQ(ToVector(Accessor(feature)->GetStrides()), (std::vector<uint64_t>{15, 3, 1}));
  EXPECT_TRUE(feature.Query<kivcore::classref::UnknownBase>());
  EXPECT_FALSE(feature.Query<ITensorFeatureDescription>());
  EXPECT_EQ(Accessor(feature)->GetFeatureRef(), feature);
}

TEST(TensorFactoriesTest, DummyTensorsAreZeroFilledPackedAndNamedInOrder) {
  FeatureDescriptionVector descriptions{
      testing::MakeDescription("image", features::kFloat32TensorFeatureType, {3, 320, 320}),
      testing::MakeDescription("mask", features::kBoolTensorFeatureType, {2, 2})};
  const FeatureContainerVector dummies = CreateDummyTensors(descriptions);
  ASSERT_EQ(dummies.size(), 2u);
  EXPECT_EQ(dummies[0].mFeatureName.View(), "image");
  EXPECT_EQ(dummies[1].mFeatureName.View(), "mask");

  const auto image = Accessor(dummies[0].mFeature);
  EXPECT_EQ(image->GetCount(), 307200u);
  EXPECT_EQ(image->GetDataTypeSize(), 4u);
  EXPECT_EQ(ToVector(image->GetShape()), (std::vector<uint64_t>{3, 320, 320}));
  EXPECT_EQ(ToVector(image->GetStrides()), (std::vector<uint64_t>{960, 3, 1}));
  const auto* bytes = static_cast<const unsigned char*>(image->GetData());
  EXPECT_TRUE(std::all_of(bytes, bytes + 1228800, [](unsigned char b) { return b == 0; }));
  EXPECT_EQ(Accessor(dummies[1].mFeature)->GetCount(), 4u);

  EXPECT_TRUE(CreateDummyTensors({}).empty());
}

class NonTensorDescription final : public kivcore::classref::Implements<IFeatureDescription> {
 public:
  kivcore::utility::ImmutableString GetName() const override { return {}; }
  FeatureKind GetKind() const override { return FeatureKind::kOther; }
};

TEST(TensorFactoriesTest, DummyTensorsOfANonTensorDescriptionRaiseTheNullPointerException) {
  FeatureDescriptionVector descriptions{kivcore::classref::MakeInterfaceRef<IFeatureDescription>(
      kivcore::classref::CreateObject<NonTensorDescription>())};
  try {
    (void)CreateDummyTensors(descriptions);
    FAIL() << "expected a null-pointer exception";
  } catch (const kivcore::config::NullPtrException& e) {
    EXPECT_NE(std::string(e.what()).find("ITensorFeatureDescription"), std::string::npos) << e.what();
  }
}

}  // namespace
}  // namespace kivml::utility
