#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

#include "Formatting.h"
#include "NpyFiles.h"
#include "ToolError.h"
#include "kivcore/config/kiv_exception.h"
#include "kivml/ITensorMLFeatureAccessor.h"
#include "kivml/ResultCodes.h"
#include "kivml/TensorFeatureTypes.h"
#include "kivml/utility/TensorFactories.h"

namespace kivml::cli {
namespace {

TEST(KivmlToolFormatting, ShapesShowFreeDimensions) {
  EXPECT_EQ(FormatShape(std::vector<int64_t>{1, -1, 3}), "[1, ?, 3]");
  EXPECT_EQ(FormatShape(ShapeType{2, 4}), "[2, 4]");
  EXPECT_EQ(FormatShape(std::vector<int64_t>{}), "[]");
}

TEST(KivmlToolFormatting, FailuresCarryTheirResultCodeInHex) {
  EXPECT_EQ(FormatResultCode(eInferenceFailure), "0xED6C0004");
  EXPECT_EQ(DescribeFailure(std::make_exception_ptr(kivcore::kiv_exception("it broke", eBadFeature))),
            "0xED6C0003: it broke");
  EXPECT_EQ(DescribeFailure(std::make_exception_ptr(kivcore::kiv_exception(eBadFeature))), "0xED6C0003");
  EXPECT_EQ(DescribeFailure(std::make_exception_ptr(std::logic_error("odd"))), "0xF8650001: odd");
}

TEST(KivmlToolFormatting, ElementTypesByName) {
  EXPECT_EQ(ElementTypeName(features::kDoubleTensorFeatureType), "float64");
  EXPECT_EQ(ElementSize(features::kDoubleTensorFeatureType), 8U);
  EXPECT_EQ(ElementTypeName(features::kBoolTensorFeatureType), "bool");
  EXPECT_EQ(ElementSize(features::kBoolTensorFeatureType), 1U);
  EXPECT_EQ(ElementTypeName(kivcore::utility::Guid()), "");
  EXPECT_EQ(ElementSize(kivcore::utility::Guid()), 0U);
}

TEST(KivmlToolFormatting, ColumnsAlignAndLinesHaveNoTrailingBlanks) {
  std::ostringstream out;
  PrintColumns(out, {{"a", "1", "x"}, {"long", "1234", ""}, {"b"}}, "> ", "lr");
  EXPECT_EQ(out.str(),
            "> a        1  x\n"
            "> long  1234\n"
            "> b\n");
}

TEST(KivmlToolNpyFiles, FileStemsAreSafeAndNeverEmpty) {
  EXPECT_EQ(NpyFiles::SafeFileStem("softmax_0.tmp_0"), "softmax_0.tmp_0");
  EXPECT_EQ(NpyFiles::SafeFileStem("scores/int32:0"), "scores_int32_0");
  EXPECT_EQ(NpyFiles::SafeFileStem("a b\\c"), "a_b_c");
  EXPECT_EQ(NpyFiles::SafeFileStem(".."), "output");
  EXPECT_EQ(NpyFiles::SafeFileStem(""), "output");
}

class KivmlToolNpyFilesOnDisk : public ::testing::Test {
 protected:
  void SetUp() override {
    mDir = std::filesystem::temp_directory_path() /
           ("kivml_tool_npy_" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) + "_" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::create_directories(mDir);
  }
  void TearDown() override { std::filesystem::remove_all(mDir); }

  std::filesystem::path mDir;
};

TEST_F(KivmlToolNpyFilesOnDisk, WrittenTensorsReadBackWithTypeShapeAndValues) {
  const std::vector<double> values{1.5, -2.0, 3.25, 0.0, 1e300, -1e-300};
  auto memory = kivcore::allocator::RecycledMemory::Create(values.size() * sizeof(double));
  std::memcpy(memory->Buffer(), values.data(), memory->Size());
  const auto tensor = utility::CreatePackedTensor(memory, sizeof(double), ShapeType{2, 3});
  const auto file = mDir / "t.npy";
  NpyFiles::Write(file, tensor, features::kDoubleTensorFeatureType);

  const NpyFiles::Loaded loaded = NpyFiles::Read(file);
  EXPECT_EQ(loaded.tensor.mElementType, features::kDoubleTensorFeatureType);
  const auto accessor = loaded.tensor.mFeature.Query<ITensorMLFeatureAccessor>();
  ASSERT_TRUE(accessor);
  EXPECT_EQ(accessor->GetShape(), (ShapeType{2, 3}));
  EXPECT_EQ(std::memcmp(accessor->GetData(), values.data(), memory->Size()), 0);
}

TEST_F(KivmlToolNpyFilesOnDisk, FailuresNameTheFile) {
  const auto missing = mDir / "missing.npy";
  try {
    NpyFiles::Read(missing);
    FAIL() << "read a missing file";
  } catch (const ToolError& error) {
    EXPECT_NE(std::string(error.what()).find("missing.npy' does not exist"), std::string::npos)
        << error.what();
  }
  const auto empty = mDir / "empty.npy";
  std::ofstream(empty).close();
  EXPECT_THROW(NpyFiles::Read(empty), ToolError);
  auto memory = kivcore::allocator::RecycledMemory::Create(4);
  const auto tensor = utility::CreatePackedTensor(memory, 4, ShapeType{1});
  EXPECT_THROW(NpyFiles::Write(mDir / "no_such_dir" / "t.npy", tensor, features::kFloat32TensorFeatureType),
               ToolError);
}

}  // namespace
}  // namespace kivml::cli
