#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "Formatting.h"
#include "NpyFiles.h"
#include "OutputFile.h"
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

TEST(KivmlToolFormatting, ControlCharactersAreEscapedAndOtherTextKept) {
  EXPECT_EQ(EscapeControlCharacters("\x1b[2Jred\x07"), "\\x1b[2Jred\\x07");
  EXPECT_EQ(EscapeControlCharacters(std::string_view("<f\0004", 4)), "<f\\x004");
  EXPECT_EQ(EscapeControlCharacters("tab\tline\ndel\x7f"), "tab\\x09line\\x0adel\\x7f");
  // C1 controls as UTF-8 encodes them (U+009B is a one-character CSI); other UTF-8 stays as it is.
  EXPECT_EQ(EscapeControlCharacters("\xC2\x9B"
                                    "31m \xC2\xA0 caf\xC3\xA9 \\x1b"),
            "\\u009b31m \xC2\xA0 caf\xC3\xA9 \\x1b");
  EXPECT_EQ(EscapeControlCharacters("ends in \xC2"), "ends in \xC2");

  std::ostringstream out;
  PrintColumns(out, {{"a\x1b", "x"}, {"long name", "y"}}, "");
  EXPECT_EQ(out.str(),
            "a\\x1b      x\n"
            "long name  y\n");
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

class KivmlToolOutputFile : public KivmlToolNpyFilesOnDisk {
 protected:
  // Every name in the directory, to catch a temporary file left behind.
  std::vector<std::string> Listing() const {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(mDir)) {
      names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
  }

  static std::string Contents(const std::filesystem::path& file) {
    std::ifstream in(file, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
  }
};

TEST_F(KivmlToolOutputFile, AFailedWriteLeavesTheEarlierFileAndNoTemporary) {
  const auto file = mDir / "report.json";
  OutputFile::Replace(file, [](std::ostream& out) { out << "first"; });
  // A stream failing part-way, as on a full disk, and a writer that gives up.
  EXPECT_THROW(OutputFile::Replace(file,
                                   [](std::ostream& out) {
                                     out << "sec";
                                     out.setstate(std::ios::badbit);
                                   }),
               ToolError);
  EXPECT_THROW(OutputFile::Replace(file,
                                   [](std::ostream& out) {
                                     out << "sec";
                                     throw std::runtime_error("gave up");
                                   }),
               std::runtime_error);
  EXPECT_EQ(Contents(file), "first");
  EXPECT_EQ(Listing(), std::vector<std::string>{"report.json"});

  OutputFile::Replace(file, [](std::ostream& out) { out << "second"; });
  EXPECT_EQ(Contents(file), "second");
  EXPECT_EQ(Listing(), std::vector<std::string>{"report.json"});
}

TEST_F(KivmlToolOutputFile, ALinkKeepsPointingAtTheFileItReplaces) {
  const auto target = mDir / "target.json";
  const auto link = mDir / "link.json";
  OutputFile::Replace(target, [](std::ostream& out) { out << "old"; });
  std::error_code error;
  std::filesystem::create_symlink(target, link, error);
  if (error) {
    GTEST_SKIP() << "no symbolic links here: " << error.message();
  }
  OutputFile::Replace(link, [](std::ostream& out) { out << "new"; });
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(Contents(target), "new");
  EXPECT_EQ(Listing(), (std::vector<std::string>{"link.json", "target.json"}));
}

TEST_F(KivmlToolOutputFile, FailuresGiveTheOptionAndTheSystemsReason) {
  const std::string missingFolder = std::generic_category().message(ENOENT);
  const auto expectFailure = [&](const auto& write, const std::string& expected) {
    try {
      write();
      ADD_FAILURE() << "no failure, expected: " << expected;
    } catch (const ToolError& error) {
      EXPECT_NE(std::string(error.what()).find(expected), std::string::npos) << error.what();
    }
  };
  const auto nowhere = mDir / "missing" / "x.npy";
  expectFailure([&] { OutputFile::Replace(nowhere, [](std::ostream& out) { out << "x"; }); },
                "cannot write '" + nowhere.string() + "': " + missingFolder);
  expectFailure([&] { OutputFile::RequireWritable(nowhere, "--json"); },
                "--json '" + nowhere.string() + "': cannot write there: " + missingFolder);
  std::filesystem::create_directory(mDir / "folder");
  expectFailure([&] { OutputFile::RequireWritable(mDir / "folder", "--plot"); }, "that is a directory");
  // Replacing a directory fails at the rename, after the content is written.
  expectFailure([&] { OutputFile::Replace(mDir / "folder", [](std::ostream& out) { out << "x"; }); },
                "cannot write '" + (mDir / "folder").string() + "': ");
  OutputFile::RequireWritable(mDir / "fine.json", "--json");
  EXPECT_EQ(Listing(), std::vector<std::string>{"folder"});
}

}  // namespace
}  // namespace kivml::cli
