#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "debug/DebugTestSupport.h"
#include "kivml/ITensorMLFeatureAccessor.h"
#include "kivml/debug/NumpyDebugIO.h"
#include "kivml/debug/TensorText.h"

namespace kivml::debug {
namespace {

using kivcore::classref::InterfaceRef;
using testing::BytesOf;
using testing::ImageOf;
using testing::Npy;
using testing::Raw;
using testing::ToVector;

const std::string kReferenceDictionary = "{'descr': '<f4', 'fortran_order': False, 'shape': (2, 4)}";

// The float32 (2, 4) tensor of 1..8 as the debug writer lays it out: 160 bytes, data at 128.
std::string ReferenceImage() {
  return std::string("\x93NUMPY\x01\x00\x76\x00", 10) + kReferenceDictionary + std::string(60, ' ') + "\n" +
         Raw<float>({1, 2, 3, 4, 5, 6, 7, 8});
}

InterfaceRef<IMLFeature> CountingFloats(std::vector<uint64_t> shape) {
  float next = 1;
  return CreateTensorFromData<float>(shape, [&next] { return next++; });
}

std::vector<float> FloatsOf(const InterfaceRef<ITensorMLFeatureAccessor>& tensor) {
  std::vector<float> values(tensor->GetCount());
  std::memcpy(values.data(), tensor->GetData(), values.size() * sizeof(float));
  return values;
}

TEST(NumpyDebugIOTest, WritesTheReferenceImageByteForByte) {
  const std::string expected = ReferenceImage();
  ASSERT_EQ(expected.size(), 160u);
  EXPECT_EQ(BytesOf(DumpTensorToNumpy(CountingFloats({2, 4}))), expected);

  const std::string data = Raw<float>({1, 2, 3, 4, 5, 6, 7, 8});
  EXPECT_EQ(BytesOf(DumpDataToNumpy(data.data(), data.size(), {2, 4}, kFloat32)), expected);
}

TEST(NumpyDebugIOTest, ReadsTheReferenceImageInPlace) {
  auto image = ImageOf(ReferenceImage());
  const char* imageData = image->Buffer() + 128;
  const auto tensor = CreateTensorFromNumpy(image).Query<ITensorMLFeatureAccessor>();
  ASSERT_TRUE(tensor);
  EXPECT_EQ(ToVector(tensor->GetShape()), (std::vector<uint64_t>{2, 4}));
  EXPECT_EQ(ToVector(tensor->GetStrides()), (std::vector<uint64_t>{8, 2, 1}));
  EXPECT_EQ(tensor->GetDataTypeSize(), 4u);
  EXPECT_EQ(tensor->GetCount(), 8u);
  EXPECT_EQ(tensor->GetData(), imageData);  // not a copy

  image.reset();  // the tensor keeps the image alive
  EXPECT_EQ(FloatsOf(tensor), (std::vector<float>{1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(NumpyDebugIOTest, AVectorIsWrittenAndReadAsARowOfOne) {
  const std::string data = Raw<float>({1, 2, 3, 4, 5});
  const auto image = DumpDataToNumpy(data.data(), data.size(), {5}, kFloat32);
  EXPECT_NE(BytesOf(image).find("'shape': (1, 5)}"), std::string::npos);
  const auto tensor = CreateTensorFromNumpy(image).Query<ITensorMLFeatureAccessor>();
  ASSERT_TRUE(tensor);
  EXPECT_EQ(ToVector(tensor->GetShape()), (std::vector<uint64_t>{1, 5}));
  EXPECT_EQ(FloatsOf(tensor), (std::vector<float>{1, 2, 3, 4, 5}));
}

TEST(NumpyDebugIOTest, EveryTypeHasItsDescriptorAndEveryImageIsReadAsFourByteElements) {
  const char* descriptors[] = {"<?1", "<b1", "<B1", "<i4", "<u4", "<f4", "<f8"};
  const std::string data(16, '\x01');
  for (int type = kBool; type <= kFloat64; ++type) {
    SCOPED_TRACE(descriptors[type]);
    const auto image = DumpDataToNumpy(data.data(), data.size(), {2, 2}, static_cast<NumpyDataType>(type));
    EXPECT_EQ(BytesOf(image).substr(10, 15), std::string("{'descr': '") + descriptors[type] + "'");
    const auto tensor = CreateTensorFromNumpy(image).Query<ITensorMLFeatureAccessor>();
    ASSERT_TRUE(tensor);
    EXPECT_EQ(tensor->GetDataTypeSize(), 4u);
    EXPECT_EQ(tensor->GetCount(), 4u);
  }
}

TEST(NumpyDebugIOTest, AnyTensorIsWrittenAsItsRawBytesUnderTheFloat32Descriptor) {
  int64_t next = 0x0102030405060708;
  const auto feature = CreateTensorFromData<int64_t>({3}, [&next] { return next++; });
  const std::string image = BytesOf(DumpTensorToNumpy(feature));
  EXPECT_EQ(image.substr(10, 57), "{'descr': '<f4', 'fortran_order': False, 'shape': (1, 3)}");
  EXPECT_EQ(image.substr(128), Raw<int64_t>({0x0102030405060708, 0x0102030405060709, 0x010203040506070A}));

  EXPECT_EQ(DumpTensorToNumpy(nullptr), nullptr);
}

TEST(NumpyDebugIOTest, DataAlwaysStartOnAMultipleOf64) {
  // "()" makes a 53-character dictionary: with its newline the header ends exactly at 64.
  std::string image = BytesOf(DumpDataToNumpy(nullptr, 0, {}, kFloat32));
  EXPECT_EQ(image, Npy("{'descr': '<f4', 'fortran_order': False, 'shape': ()}\n", ""));

  // A 118-character dictionary ends at 128 without room for the newline, which then takes a whole line.
  std::vector<uint64_t> shape(21, 1);
  shape[0] = shape[1] = shape[2] = shape[3] = 10;
  image = BytesOf(DumpDataToNumpy(nullptr, 0, shape, kFloat32));
  ASSERT_EQ(image.size(), 192u);
  EXPECT_EQ(image.substr(126, 2), ")}");
  EXPECT_EQ(image.substr(128), std::string(63, ' ') + "\n");
}

TEST(NumpyDebugIOTest, AFortranOrderImageIsReadInTheOrderItsDataLie) {
  std::string image = ReferenceImage();
  image.replace(image.find("False"), 5, "True ");
  const auto tensor = CreateTensorFromNumpy(ImageOf(image)).Query<ITensorMLFeatureAccessor>();
  ASSERT_TRUE(tensor);
  EXPECT_EQ(FloatsOf(tensor), (std::vector<float>{1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(NumpyDebugIOTest, AZeroDimensionEmptiesTheTensorHoweverLargeTheOthers) {
  const std::string image =
      Npy("{'descr': '<f4', 'fortran_order': False, 'shape': (4294967296, 4294967296, 0)}\n", "");
  const auto tensor = CreateTensorFromNumpy(ImageOf(image)).Query<ITensorMLFeatureAccessor>();
  ASSERT_TRUE(tensor);
  EXPECT_EQ(ToVector(tensor->GetShape()), (std::vector<uint64_t>{4294967296, 4294967296, 0}));
  EXPECT_EQ(tensor->GetCount(), 0u);
}

TEST(NumpyDebugIOTest, RejectedImagesGiveAnEmptyReference) {
  const std::string reference = ReferenceImage();
  const std::string data = reference.substr(128);
  const auto withHeader = [&data](const std::string& header) { return Npy(header, data); };
  const auto withLength = [&reference](unsigned length) {
    std::string image = reference;
    image[8] = static_cast<char>(length & 0xFF);
    image[9] = static_cast<char>(length >> 8);
    return image;
  };

  const std::vector<std::pair<const char*, std::string>> rejected{
      {"ten bytes", reference.substr(0, 10)},
      {"wrong magic", "\x93NUMPX" + reference.substr(6)},
      {"version 2.0", reference.substr(0, 6) + '\x02' + reference.substr(7)},
      {"length 32768", withLength(32768) + std::string(32768, ' ')},
      {"no descr", withHeader("{'type': '<f4', 'fortran_order': False, 'shape': (2, 4)}\n")},
      {"unknown descriptor", withHeader("{'descr': '<f2', 'fortran_order': False, 'shape': (2, 4)}\n")},
      {"dimension beyond 64 bits",
       withHeader("{'descr': '<f4', 'fortran_order': False, 'shape': (18446744073709551616, 1)}\n")},
      {"count beyond 64 bits",
       withHeader("{'descr': '<f4', 'fortran_order': False, 'shape': (4294967296, 4294967296)}\n")},
      {"more elements than data", withHeader("{'descr': '<f4', 'fortran_order': False, 'shape': (3, 3)}\n")},
      {"truncated data", reference.substr(0, 156)},
  };
  for (const auto& [what, image] : rejected) {
    EXPECT_FALSE(CreateTensorFromNumpy(ImageOf(image))) << what;
  }
  // Stored as 65526..65535 the length reads as -10..-1, which puts "H + 10" inside any image.
  for (unsigned length = 65526; length <= 65535; ++length) {
    EXPECT_FALSE(CreateTensorFromNumpy(ImageOf(withLength(length)))) << length;
  }
  EXPECT_FALSE(CreateTensorFromNumpy(nullptr));
  EXPECT_FALSE(CreateTensorFromNumpy(ImageOf("")));
}

}  // namespace
}  // namespace kivml::debug
