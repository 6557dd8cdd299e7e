#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <numeric>
#include <string>
#include <thread>

#include "TestEnvironment.h"
#include "kivcore/filesupport/CommonDirs.h"
#include "kivcore/filesupport/Dir.h"
#include "kivcore/filesupport/File.h"
#include "kivcore/filesupport/FileUtils.h"
#include "kivcore/string/StringConversions.h"

namespace kivcore::filesupport {
namespace {

wstring Wide(const std::filesystem::path& path) {
  const std::u8string utf8 = path.u8string();
  return string::UTF8to16(std::string_view(reinterpret_cast<const char*>(utf8.data()), utf8.size()));
}

// A fresh directory under the system temporary directory, removed afterwards.
class FileSupportTest : public ::testing::Test {
 protected:
  FileSupportTest() {
    std::filesystem::remove_all(mRoot);
    std::filesystem::create_directories(mRoot);
  }
  ~FileSupportTest() override { std::filesystem::remove_all(mRoot); }

  const std::filesystem::path mRoot =
      std::filesystem::temp_directory_path() /
      ("kivcore_filesupport_" + std::to_string(std::hash<std::thread::id>()(std::this_thread::get_id())) +
       "_" + ::testing::UnitTest::GetInstance()->current_test_info()->name());
};

TEST_F(FileSupportTest, DirsAndFilesComposePathsAndCheckExistence) {
  const Dir root(Wide(mRoot));
  const Dir sub(root, string::UTF8to16("models"));
  const File file(sub, string::UTF8to16("weights.bin"));
  EXPECT_EQ(file.FullPath(), Wide(mRoot / "models" / "weights.bin"));
  EXPECT_TRUE(root.Exists());
  EXPECT_FALSE(sub.Exists());
  EXPECT_FALSE(file.Exists());
  std::filesystem::create_directories(mRoot / "models");
  std::ofstream(mRoot / "models" / "weights.bin") << "x";
  EXPECT_TRUE(sub.Exists());
  EXPECT_TRUE(file.Exists());
  EXPECT_FALSE(File(root, string::UTF8to16("models")).Exists()) << "a directory is not a file";
  EXPECT_FALSE(Dir(sub, string::UTF8to16("weights.bin")).Exists()) << "nor a file a directory";
}

TEST_F(FileSupportTest, ReadsWholeFilesOrGivesNull) {
  std::string content(100'000, '\0');
  std::iota(content.begin(), content.end(), '\0');  // every byte value, NUL and newlines included
  const std::filesystem::path path = mRoot / std::u8string(u8"donn\u00e9es_\u4e2d.bin");
  std::ofstream(path, std::ios::binary) << content;
  const auto buffer = utility::FileUtils::SimpleReadFileIntoBuffer(Wide(path));
  ASSERT_NE(buffer, nullptr);
  EXPECT_EQ(std::string(buffer->Buffer(), buffer->Size()), content);

  std::ofstream(mRoot / "empty.bin", std::ios::binary);
  const auto empty = utility::FileUtils::SimpleReadFileIntoBuffer(Wide(mRoot / "empty.bin"));
  ASSERT_NE(empty, nullptr);
  EXPECT_EQ(empty->Size(), 0u);
  for (const wstring& unreadable : {Wide(mRoot / "missing.bin"), Wide(mRoot), wstring()}) {
    EXPECT_EQ(utility::FileUtils::SimpleReadFileIntoBuffer(unreadable), nullptr);
  }
}

TEST_F(FileSupportTest, ResourcesDirFromEnvironmentOrExecutable) {
  ASSERT_TRUE(kivcore::test::SetEnvironment("KIVCORE_RESOURCES_DIR", mRoot.string().c_str()));
  EXPECT_EQ(commondirs::ResourcesDir().FullPath(), Wide(mRoot));
  kivcore::test::ClearEnvironment("KIVCORE_RESOURCES_DIR");
  const std::filesystem::path program = ::testing::internal::GetArgvs().at(0);
  EXPECT_TRUE(File(commondirs::ResourcesDir(), Wide(program.filename())).Exists()) << program;
}

}  // namespace
}  // namespace kivcore::filesupport
