#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "debug/DebugTestSupport.h"
#include "kivml/ITensorMLFeatureAccessor.h"
#include "kivml/debug/TensorText.h"

namespace kivml::debug {
namespace {

using kivcore::classref::InterfaceRef;
using testing::ToVector;

std::string Text(const kivcore::u8string& text) {
  return {text.begin(), text.end()};
}

template <typename T>
InterfaceRef<IMLFeature> Tensor(std::vector<uint64_t> shape, std::vector<T> values) {
  size_t next = 0;
  return CreateTensorFromData<T>(shape, [&] { return values.at(next++); });
}

template <typename T>
class CreateTensorFromDataTest : public ::testing::Test {};
using ElementTypes = ::testing::Types<int8_t, char, int16_t, int32_t, float, double, int64_t, bool>;
TYPED_TEST_SUITE(CreateTensorFromDataTest, ElementTypes);

TYPED_TEST(CreateTensorFromDataTest, FillsElementsInMemoryOrderOneCallEach) {
  int calls = 0;
  const auto feature = CreateTensorFromData<TypeParam>({2, 3}, [&calls] {
    ++calls;
    return static_cast<TypeParam>(calls % 2 == 0 ? 0 : calls);
  });
  EXPECT_EQ(calls, 6);
  const auto tensor = feature.template Query<ITensorMLFeatureAccessor>();
  ASSERT_TRUE(tensor);
  EXPECT_EQ(tensor->GetCount(), 6u);
  EXPECT_EQ(tensor->GetDataTypeSize(), sizeof(TypeParam));
  EXPECT_EQ(ToVector(tensor->GetShape()), (std::vector<uint64_t>{2, 3}));
  const auto* data = static_cast<const TypeParam*>(tensor->GetData());
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(data[i], static_cast<TypeParam>(i % 2 == 1 ? 0 : i + 1)) << i;
  }
}

TEST(TensorTextTest, StridesAreOneLongerThanTheShape) {
  const auto strides = [](std::vector<uint64_t> shape) {
    return ToVector(CreateTensorFromData<float>(shape, [] { return 0.0f; })
                        .Query<ITensorMLFeatureAccessor>()
                        ->GetStrides());
  };
  EXPECT_EQ(strides({2, 4}), (std::vector<uint64_t>{8, 2, 1}));
  EXPECT_EQ(strides({3, 5, 10}), (std::vector<uint64_t>{150, 15, 3, 1}));
  EXPECT_EQ(strides({}), (std::vector<uint64_t>{1}));

  const auto scalar = CreateTensorFromData<float>({}, [] { return 7.0f; }).Query<ITensorMLFeatureAccessor>();
  EXPECT_EQ(scalar->GetCount(), 1u);
  EXPECT_EQ(*static_cast<const float*>(scalar->GetData()), 7.0f);
}

TEST(TensorTextTest, TheGeneratorIsCalledOnlyForElementsThatExist) {
  EXPECT_THROW(CreateTensorFromData<float>({1}, std::function<float()>()), std::bad_function_call);
  const auto empty = CreateTensorFromData<float>({3, 0}, std::function<float()>());
  EXPECT_EQ(empty.Query<ITensorMLFeatureAccessor>()->GetCount(), 0u);
  EXPECT_THROW(CreateTensorFromData<double>({1ull << 32, 1ull << 32}, [] { return 0.0; }),
               std::bad_array_new_length);
}

TEST(TensorTextTest, DumpsTheReferenceText) {
  const std::string expected = "{\n    \"Shape\": [2, 4],\n\n    \"Data\": [1, 2, 3, 4, 5, 6, 7, 8]\n}\n\n";
  ASSERT_EQ(expected.size(), 64u);
  EXPECT_EQ(Text(DumpTensorToString<float>(Tensor<float>({2, 4}, {1, 2, 3, 4, 5, 6, 7, 8}))), expected);
  EXPECT_EQ(Text(DumpTensorToString<float>(nullptr)), "");
}

TEST(TensorTextTest, EachTypePrintsItsOwnWay) {
  const auto data = [](const kivcore::u8string& text) {
    const std::string all = Text(text);
    const size_t begin = all.find("\"Data\": [") + 9;
    return all.substr(begin, all.rfind(']') - begin);
  };
  EXPECT_EQ(data(DumpTensorToString<int8_t>(Tensor<int8_t>({3}, {-5, 65, 0}))), "-5, 65, 0");
  EXPECT_EQ(data(DumpTensorToString<char>(Tensor<char>({3}, {'A', 'b', '7'}))), "A, b, 7");
  EXPECT_EQ(data(DumpTensorToString<int16_t>(Tensor<int16_t>({2}, {-32768, 300}))), "-32768, 300");
  EXPECT_EQ(data(DumpTensorToString<int32_t>(Tensor<int32_t>({2}, {-1, 2147483647}))), "-1, 2147483647");
  EXPECT_EQ(data(DumpTensorToString<float>(Tensor<float>({3}, {0.5f, 1.0f / 3, 1e20f}))),
            "0.5, 0.333333, 1e+20");
  EXPECT_EQ(data(DumpTensorToString<double>(Tensor<double>({2}, {2.0, 0.1}))), "2, 0.1");
  EXPECT_EQ(data(DumpTensorToString<int64_t>(Tensor<int64_t>({1}, {-9007199254740993}))),
            "-9007199254740993");
  EXPECT_EQ(data(DumpTensorToString<bool>(Tensor<bool>({2}, {true, false}))), "1, 0");
}

TEST(TensorTextTest, ElementsAreReadAsTheTemplateTypeWithinTheTensorsBytes) {
  // Four bytes 1, 0, 0, 2 as int8_t, as bool (any nonzero byte is 1), and as a wider type that fits once.
  const auto feature = Tensor<int8_t>({4}, {1, 0, 0, 2});
  EXPECT_EQ(Text(DumpTensorToString<bool>(feature)),
            "{\n    \"Shape\": [4],\n\n    \"Data\": [1, 0, 0, 1]\n}\n\n");
  EXPECT_EQ(Text(DumpTensorToString<int32_t>(feature)),
            "{\n    \"Shape\": [4],\n\n    \"Data\": [33554433]\n}\n\n");
  EXPECT_EQ(Text(DumpTensorToString<double>(feature)), "{\n    \"Shape\": [4],\n\n    \"Data\": []\n}\n\n");
}

}  // namespace
}  // namespace kivml::debug
