// Element types, wrappers over ONNX Runtime values and the global pool size, below the evaluator.

#include <gtest/gtest.h>

#include <functional>

#include "kivcore/allocator/RecycledMemory.h"
#include "kivcore/config/kiv_exception.h"
#include "kivml/ResultCodes.h"
#include "kivml/TensorFeatureTypes.h"
#include "kivml/utility/TensorFactories.h"
#include "onnxruntime/ORTApi.h"
#include "onnxruntime/ORTElementTypes.h"
#include "onnxruntime/ORTEnvironment.h"
#include "onnxruntime/ORTTensorConversion.h"
#include "onnxruntime/PredictException.h"

namespace kivml::ort {
namespace {

int CodeOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const PredictException& exception) {
    return exception.GetResult();
  }
  return 0;
}

// A wrapper around a new value of `type` and `shape`, allocated by ONNX Runtime.
kivcore::classref::InterfaceRef<ITensorMLFeatureAccessor> MakeWrapped(ONNXTensorElementDataType type,
                                                                      const DescriptionShapeType& shape) {
  OrtValue* value = nullptr;
  ThrowIfFailed(Api().CreateTensorAsOrtValue(DefaultAllocator(), shape.data(), shape.size(), type, &value));
  return WrapValue(UniqueValue(value)).Query<ITensorMLFeatureAccessor>();
}

TEST(ORTElementTypes, MapsTheFiveTypesAndRejectsOthersWithTheirCodes) {
  EXPECT_EQ(ToONNXElementType(features::kDoubleTensorFeatureType), ONNX_TENSOR_ELEMENT_DATA_TYPE_DOUBLE);
  EXPECT_EQ(FromONNXElementType(ONNX_TENSOR_ELEMENT_DATA_TYPE_BOOL), features::kBoolTensorFeatureType);
  EXPECT_FALSE(FromONNXElementType(ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT16));
  EXPECT_EQ(CodeOf([] { ToONNXElementType(kivcore::utility::Guid()); }), eBadFeatureDescriptions);

  EXPECT_EQ(MakeWrapped(ONNX_TENSOR_ELEMENT_DATA_TYPE_BOOL, {2})->GetDataTypeSize(), 1U);
  EXPECT_EQ(MakeWrapped(ONNX_TENSOR_ELEMENT_DATA_TYPE_DOUBLE, {2})->GetDataTypeSize(), 8U);
  const auto half = MakeWrapped(ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT16, {2});
  EXPECT_EQ(CodeOf([&] { half->GetDataTypeSize(); }), eBadFeature);
}

TEST(ORTTensorConversion, ItemsOfABatchedValueAreItsSlices) {
  OrtValue* raw = nullptr;
  const int64_t shape[] = {3, 2};
  ThrowIfFailed(
      Api().CreateTensorAsOrtValue(DefaultAllocator(), shape, 2, ONNX_TENSOR_ELEMENT_DATA_TYPE_INT32, &raw));
  void* data = nullptr;
  ThrowIfFailed(Api().GetTensorMutableData(raw, &data));
  for (int32_t i = 0; i < 6; ++i) {
    static_cast<int32_t*>(data)[i] = i;
  }
  const FeatureRefVector items = SplitValue("y", UniqueValue(raw), 3);
  ASSERT_EQ(items.size(), 3U);
  const auto last = items[2].Query<ITensorMLFeatureAccessor>();
  EXPECT_EQ(last->GetShape(), ShapeType({1, 2}));
  EXPECT_EQ(last->GetCount(), 2U);
  EXPECT_EQ(static_cast<const int32_t*>(last->GetData())[0], 4);
  EXPECT_EQ(static_cast<const int32_t*>(last->GetData())[1], 5);
}

TEST(ORTTensorConversion, AnOutputWithoutARowPerItemIsNotSplit) {
  // A scalar, or a first dimension counting something else than the items: no item's share can be told,
  // and handing every item the whole value would show each request the others' data.
  const auto expectRefused = [](std::vector<int64_t> shape, size_t items) {
    OrtValue* raw = nullptr;
    ThrowIfFailed(Api().CreateTensorAsOrtValue(DefaultAllocator(), shape.data(), shape.size(),
                                               ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT, &raw));
    try {
      (void)SplitValue("sum", UniqueValue(raw), items);
      ADD_FAILURE() << "split into " << items;
    } catch (const kivcore::kiv_exception& exception) {
      EXPECT_EQ(exception.GetResult(), eInferenceFailure);
      EXPECT_NE(std::string(exception.what()).find("Output 'sum'"), std::string::npos) << exception.what();
    }
  };
  expectRefused({}, 2);
  expectRefused({3}, 2);
  expectRefused({1, 3}, 2);
}

TEST(ORTTensorConversion, OnlyStridesOfAPackedLayoutFit) {
  const auto fits = [](StrideType strides, ShapeType shape = {3, 5, 10}) {
    auto memory = kivcore::allocator::RecycledMemory::Create(150 * sizeof(float));
    const auto tensor = utility::CreateTensor(std::move(memory), sizeof(float), shape, std::move(strides))
                            .Query<ITensorMLFeatureAccessor>();
    const DescriptionShapeType described(shape.begin(), shape.end());
    try {
      FitToDescription("x", *tensor, described, ONNX_TENSOR_ELEMENT_DATA_TYPE_FLOAT);
      return true;
    } catch (const kivcore::kiv_exception& exception) {
      EXPECT_EQ(exception.GetResult(), eBadFeature);
      return false;
    }
  };
  EXPECT_TRUE(fits({}));
  EXPECT_TRUE(fits({15, 3, 1}));       // the library's own: products of the leading dimensions
  EXPECT_TRUE(fits({150, 15, 3, 1}));  // the same after the element count, as the debug reader gives them
  EXPECT_TRUE(fits({50, 10, 1}));      // row-major
  EXPECT_FALSE(fits({50, 10, 2}));
  EXPECT_FALSE(fits({15, 3}));
  EXPECT_FALSE(fits({1, 10, 50}));
  // A dimension of one element never moves, whatever its stride.
  EXPECT_TRUE(fits({0, 10, 1}, {1, 15, 10}));
  EXPECT_FALSE(fits({0, 1000000}, {1, 150}));
}

TEST(ORTEnvironment, LeavesTwoProcessorsToTheHostOnLargerMachines) {
  EXPECT_EQ(ORTEnvironment::GlobalPoolThreadCount(1), 1U);
  EXPECT_EQ(ORTEnvironment::GlobalPoolThreadCount(2), 2U);
  EXPECT_EQ(ORTEnvironment::GlobalPoolThreadCount(3), 1U);
  EXPECT_EQ(ORTEnvironment::GlobalPoolThreadCount(8), 6U);
}

}  // namespace
}  // namespace kivml::ort
