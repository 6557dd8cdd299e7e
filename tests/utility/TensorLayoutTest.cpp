#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

#include "kivml/utility/TensorLayout.h"
#include "support/FakeTensorDescription.h"

namespace kivml::utility {
namespace {

using kivcore::utility::Guid;

std::vector<uint64_t> Strides(std::initializer_list<uint64_t> shape) {
  const StrideType strides = CalculatePackedStrides(ShapeType(shape));
  return {strides.begin(), strides.end()};
}

TEST(TensorLayoutTest, ElementSizesOfTheFiveTypesAndNothingElse) {
  EXPECT_EQ(GetTensorDataTypeSize(features::kInt32TensorFeatureType), 4u);
  EXPECT_EQ(GetTensorDataTypeSize(features::kInt64TensorFeatureType), 8u);
  EXPECT_EQ(GetTensorDataTypeSize(features::kFloat32TensorFeatureType), 4u);
  EXPECT_EQ(GetTensorDataTypeSize(features::kDoubleTensorFeatureType), 8u);
  EXPECT_EQ(GetTensorDataTypeSize(features::kBoolTensorFeatureType), 1u);
  EXPECT_EQ(GetTensorDataTypeSize(Guid::CreateUnique()), 0u);
  EXPECT_EQ(GetTensorDataTypeSize(Guid()), 0u);
  EXPECT_EQ(GetTensorDataTypeName(features::kDoubleTensorFeatureType), "double");
  EXPECT_EQ(GetTensorDataTypeName(Guid::CreateUnique()), "unknown");
  EXPECT_EQ(features::kFloat32TensorFeatureType.ToString(), "67C63E28-A8D5-45FD-A7BA-21284F0283E1");
}

TEST(TensorLayoutTest, FeatureSizeMultipliesElementSizeByEveryDimension) {
  using testing::MakeDescription;
  EXPECT_EQ(
      CalculateTensorFeatureSize(MakeDescription("x", features::kFloat32TensorFeatureType, {3, 320, 320})),
      1228800u);
  EXPECT_EQ(CalculateTensorFeatureSize(MakeDescription("x", features::kDoubleTensorFeatureType, {})), 8u);
  EXPECT_EQ(CalculateTensorFeatureSize(MakeDescription("x", Guid::CreateUnique(), {2, 2})), 0u);
  EXPECT_EQ(CalculateTensorFeatureSize(nullptr), 0u);
}

TEST(TensorLayoutTest, PackedStridesAreProductsOfTheLeadingDimensions) {
  EXPECT_EQ(Strides({3, 5, 10}), (std::vector<uint64_t>{15, 3, 1}));
  EXPECT_EQ(Strides({3, 3}), (std::vector<uint64_t>{3, 1}));
  EXPECT_EQ(Strides({5}), (std::vector<uint64_t>{1}));
  EXPECT_EQ(Strides({}), (std::vector<uint64_t>{}));
  EXPECT_EQ(Strides({3, 4, 5, 99}), (std::vector<uint64_t>{60, 12, 3, 1}));
  EXPECT_EQ(Strides({3, 5, 7, 9, 1000}), (std::vector<uint64_t>{945, 105, 15, 3, 1}));
}

}  // namespace
}  // namespace kivml::utility
