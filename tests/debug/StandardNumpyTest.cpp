#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "debug/DebugTestSupport.h"
#include "kivcore/config/kiv_exception.h"
#include "kivml/ITensorMLFeatureAccessor.h"
#include "kivml/ResultCodes.h"
#include "kivml/debug/StandardNumpy.h"
#include "kivml/debug/TensorText.h"
#include "kivml/utility/TensorFactories.h"
#include "kivml/utility/TensorLayout.h"

namespace kivml::debug {
namespace {

using kivcore::classref::InterfaceRef;
using kivcore::utility::Guid;
using testing::BytesOf;
using testing::ImageOf;
using testing::Npy;
using testing::NumpySaved;
using testing::Raw;
using testing::ToVector;

template <typename T>
InterfaceRef<IMLFeature> Tensor(std::vector<uint64_t> shape, std::vector<T> values) {
  size_t next = 0;
  return CreateTensorFromData<T>(shape, [&] { return values.at(next++); });
}

std::string DataOf(const InterfaceRef<IMLFeature>& feature) {
  const auto tensor = feature.Query<ITensorMLFeatureAccessor>();
  return std::string(static_cast<const char*>(tensor->GetData()),
                     tensor->GetCount() * tensor->GetDataTypeSize());
}

// The message of the kiv_exception that reading the image raises, or "" when it reads.
std::string ReadError(const std::string& image) {
  try {
    CreateTensorFromStandardNumpy(ImageOf(image));
  } catch (const kivcore::kiv_exception& exception) {
    EXPECT_EQ(exception.GetResult(), eBadFeature);
    return exception.what();
  }
  return "";
}

std::string WriteError(const InterfaceRef<IMLFeature>& feature, const Guid& elementType) {
  try {
    DumpTensorToStandardNumpy(feature, elementType);
  } catch (const kivcore::kiv_exception& exception) {
    EXPECT_EQ(exception.GetResult(), eBadFeature);
    return exception.what();
  }
  return "";
}

TEST(StandardNumpyTest, EveryElementTypeHasItsDescriptor) {
  EXPECT_EQ(StandardNumpyDescriptor(features::kInt32TensorFeatureType), "<i4");
  EXPECT_EQ(StandardNumpyDescriptor(features::kInt64TensorFeatureType), "<i8");
  EXPECT_EQ(StandardNumpyDescriptor(features::kFloat32TensorFeatureType), "<f4");
  EXPECT_EQ(StandardNumpyDescriptor(features::kDoubleTensorFeatureType), "<f8");
  EXPECT_EQ(StandardNumpyDescriptor(features::kBoolTensorFeatureType), "|b1");
  EXPECT_EQ(StandardNumpyDescriptor(Guid(1, 2)), "");
}

// Header texts and padding as numpy.save (NumPy 1.24) wrote them for the same arrays.
TEST(StandardNumpyTest, WritesWhatNumpySaveWrites) {
  EXPECT_EQ(BytesOf(DumpTensorToStandardNumpy(Tensor<float>({2, 4}, {1, 2, 3, 4, 5, 6, 7, 8}),
                                              features::kFloat32TensorFeatureType)),
            NumpySaved("{'descr': '<f4', 'fortran_order': False, 'shape': (2, 4), }", 58,
                       Raw<float>({1, 2, 3, 4, 5, 6, 7, 8})));
  EXPECT_EQ(BytesOf(DumpTensorToStandardNumpy(Tensor<int64_t>({5}, {1, -2, 3, 1ll << 40, -1}),
                                              features::kInt64TensorFeatureType)),
            NumpySaved("{'descr': '<i8', 'fortran_order': False, 'shape': (5,), }", 60,
                       Raw<int64_t>({1, -2, 3, 1ll << 40, -1})));
  EXPECT_EQ(BytesOf(DumpTensorToStandardNumpy(Tensor<double>({}, {2.5}), features::kDoubleTensorFeatureType)),
            NumpySaved("{'descr': '<f8', 'fortran_order': False, 'shape': (), }", 62, Raw<double>({2.5})));
  EXPECT_EQ(BytesOf(DumpTensorToStandardNumpy(Tensor<bool>({3}, {true, false, true}),
                                              features::kBoolTensorFeatureType)),
            NumpySaved("{'descr': '|b1', 'fortran_order': False, 'shape': (3,), }", 60,
                       std::string("\x01\x00\x01", 3)));
  EXPECT_EQ(
      BytesOf(DumpTensorToStandardNumpy(Tensor<int32_t>({0, 3}, {}), features::kInt32TensorFeatureType)),
      NumpySaved("{'descr': '<i4', 'fortran_order': False, 'shape': (0, 3), }", 58, ""));
}

TEST(StandardNumpyTest, EveryTypeRoundTripsWithItsTypeShapeAndBytes) {
  const std::vector<std::pair<Guid, InterfaceRef<IMLFeature>>> tensors{
      {features::kInt32TensorFeatureType, Tensor<int32_t>({2, 3}, {1, -2, 3, -4, 5, 2147483647})},
      {features::kInt64TensorFeatureType, Tensor<int64_t>({3}, {-1, 0, 1ll << 62})},
      {features::kFloat32TensorFeatureType, Tensor<float>({1, 2, 2}, {0.5f, -1, 3e38f, 0})},
      {features::kDoubleTensorFeatureType, Tensor<double>({}, {-0.125})},
      {features::kBoolTensorFeatureType, Tensor<bool>({2, 2}, {true, false, false, true})},
  };
  for (const auto& [elementType, written] : tensors) {
    SCOPED_TRACE(std::string(utility::GetTensorDataTypeName(elementType)));
    const auto image = DumpTensorToStandardNumpy(written, elementType);
    const StandardNumpyTensor read = CreateTensorFromStandardNumpy(image);
    EXPECT_EQ(read.mElementType, elementType);
    const auto tensor = read.mFeature.Query<ITensorMLFeatureAccessor>();
    ASSERT_TRUE(tensor);
    const ShapeType shape = written.Query<ITensorMLFeatureAccessor>()->GetShape();
    EXPECT_EQ(tensor->GetShape(), shape);
    EXPECT_EQ(tensor->GetStrides(), utility::CalculatePackedStrides(shape));
    EXPECT_EQ(tensor->GetDataTypeSize(), utility::GetTensorDataTypeSize(elementType));
    EXPECT_EQ(DataOf(read.mFeature), DataOf(written));
    EXPECT_EQ(tensor->GetData(), image->Buffer() + 128);  // over the image, not a copy
  }
}

TEST(StandardNumpyTest, ReadsImagesOfVersions1To3AsNumpyWritesThem) {
  // numpy.lib.format.write_array with version (1, 0), (2, 0) and (3, 0).
  const StandardNumpyTensor doubles = CreateTensorFromStandardNumpy(ImageOf(
      NumpySaved("{'descr': '<f8', 'fortran_order': False, 'shape': (3, 1), }", 58, Raw<double>({0, 2, 4}))));
  EXPECT_EQ(doubles.mElementType, features::kDoubleTensorFeatureType);
  EXPECT_EQ(ToVector(doubles.mFeature.Query<ITensorMLFeatureAccessor>()->GetShape()),
            (std::vector<uint64_t>{3, 1}));
  EXPECT_EQ(DataOf(doubles.mFeature), Raw<double>({0, 2, 4}));

  const StandardNumpyTensor ints = CreateTensorFromStandardNumpy(ImageOf(NumpySaved(
      "{'descr': '<i4', 'fortran_order': False, 'shape': (3,), }", 58, Raw<int32_t>({1, -2, 3}), 2)));
  EXPECT_EQ(ints.mElementType, features::kInt32TensorFeatureType);
  EXPECT_EQ(DataOf(ints.mFeature), Raw<int32_t>({1, -2, 3}));

  const StandardNumpyTensor bools = CreateTensorFromStandardNumpy(ImageOf(NumpySaved(
      "{'descr': '|b1', 'fortran_order': False, 'shape': (2, 1), }", 56, std::string("\x01\x00", 2), 3)));
  EXPECT_EQ(bools.mElementType, features::kBoolTensorFeatureType);
  EXPECT_EQ(ToVector(bools.mFeature.Query<ITensorMLFeatureAccessor>()->GetShape()),
            (std::vector<uint64_t>{2, 1}));
}

TEST(StandardNumpyTest, ReadsAnyDictionaryPythonWouldAndEquivalentDescriptors) {
  const std::string four = Raw<float>({1, 2, 3, 4});
  const std::vector<std::string> headers{
      "{'shape': (2, 2), 'fortran_order': False, 'descr': '<f4'}",
      " {  \"descr\" :'=f4' ,'fortran_order':False,\n'shape':( 2 ,2 , ) , }\n",
      "{'descr': '|f4', 'fortran_order': False, 'shape': (4,)}",
      "{'descr': 'f4', 'fortran_order': False, 'shape': (2, 2)}",
  };
  for (const std::string& header : headers) {
    EXPECT_EQ(ReadError(Npy(header, four)), "") << header;
  }
  for (const char* bools : {"'<b1'", "'?'", "'>?'", "'b1'"}) {
    const std::string header = std::string("{'descr': ") + bools + ", 'fortran_order': False, 'shape': (4,)}";
    EXPECT_EQ(
        CreateTensorFromStandardNumpy(ImageOf(Npy(header, std::string("\x01\x00\x00\x01", 4)))).mElementType,
        features::kBoolTensorFeatureType)
        << bools;
  }
}

TEST(StandardNumpyTest, RefusesWhatItCannotReadFaithfullyWithAClearMessage) {
  const std::string eight = Raw<float>({1, 2, 3, 4, 5, 6, 7, 8});
  const auto header = [](const std::string& descr, const std::string& order, const std::string& shape) {
    return "{'descr': '" + descr + "', 'fortran_order': " + order + ", 'shape': " + shape + ", }\n";
  };
  EXPECT_EQ(ReadError(Npy(header("<f4", "True", "(2, 4)"), eight)), "Fortran order is not supported");
  EXPECT_EQ(ReadError(Npy(header(">f4", "False", "(2, 4)"), eight)),
            "unsupported dtype '>f4': big-endian data is not supported");
  EXPECT_EQ(ReadError(Npy(header("<f2", "False", "(2, 4)"), eight)),
            "unsupported dtype '<f2': only int32, int64, float32, float64 and bool are");
  EXPECT_EQ(ReadError(Npy(header("<f4", "False", "(2, 4)"), eight.substr(0, 12))),
            "data is 12 bytes, shape (2, 4) of '<f4' needs 32");
  EXPECT_EQ(ReadError(Npy(header("<f4", "False", "(2, 4)"), eight + std::string(1, '\0'))),
            "data is 33 bytes, shape (2, 4) of '<f4' needs 32");
  EXPECT_EQ(ReadError(Npy(header("<f8", "False", "(4294967296, 4294967296)"), eight)),
            "shape (4294967296, 4294967296) of '<f8' does not fit 64 bits");

  EXPECT_EQ(ReadError(""), "not a .npy image: no bytes");
  EXPECT_EQ(ReadError("\x93NUMPY\x01"), "not a .npy image");
  EXPECT_EQ(ReadError(Npy(header("<f4", "False", "(2, 4)"), eight, 4)), "unsupported .npy version 4.0");
  EXPECT_EQ(ReadError(Npy(header("<f4", "False", "(2, 4)"), eight).substr(0, 9)),
            "truncated .npy image: 9 bytes");
  EXPECT_EQ(ReadError(Npy(header("<f4", "False", "(2, 4)"), "").substr(0, 40)),
            "truncated .npy image: the header needs 60 bytes, 30 follow");

  const std::vector<std::pair<std::string, std::string>> badHeaders{
      {"{'descr': '<f4', 'fortran_order': False}", "key 'shape' is missing"},
      {"{'descr': '<f4', 'fortran_order': False, 'shape': (8,), 'x': 1}", "unknown key 'x'"},
      {"{'descr': '<f4', 'descr': '<f4', 'fortran_order': False, 'shape': (8,)}",
       "key 'descr' appears twice"},
      {"{'descr': '<f4', 'fortran_order': False, 'shape': (8)}",
       "'shape' is not a tuple of non-negative integers"},
      {"{'descr': '<f4', 'fortran_order': False, 'shape': (18446744073709551616,)}",
       "a dimension of 'shape' does not fit 64 bits"},
      {"{'descr': '<f4' 'fortran_order': False, 'shape': (8,)}", "expected '}' after a value"},
  };
  for (const auto& [text, what] : badHeaders) {
    EXPECT_EQ(ReadError(Npy(text, eight)), "bad .npy header: " + what) << text;
  }
}

TEST(StandardNumpyTest, WritingRefusesTensorsTheImageCouldNotDescribe) {
  const auto floats = Tensor<float>({2}, {1, 2});
  EXPECT_EQ(WriteError(nullptr, features::kFloat32TensorFeatureType),
            "cannot write a .npy image: the feature is not a tensor");
  EXPECT_EQ(
      WriteError(floats, Guid(1, 2)),
      "cannot write a .npy image: element type 00000000-0000-0001-0000-000000000002 has no NumPy descriptor");
  EXPECT_EQ(WriteError(floats, features::kDoubleTensorFeatureType),
            "cannot write a .npy image: the tensor's elements are 4 bytes, double needs 8");
  // Ten bytes of buffer hold two 4-byte elements; a shape of three cannot be written truthfully.
  const auto shortTensor =
      utility::CreateTensor(ImageOf(std::string(10, '\0')), 4, ShapeType{3}, StrideType{1});
  EXPECT_EQ(WriteError(shortTensor, features::kFloat32TensorFeatureType),
            "cannot write a .npy image: the tensor holds 2 elements, shape (3,) needs 3");
}

}  // namespace
}  // namespace kivml::debug
