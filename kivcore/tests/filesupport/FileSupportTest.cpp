#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

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

std::filesystem::path Native(const wstring& path) {
  const u8string utf8 = string::UTF16to8(path);
  return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
}

// A fresh directory under the system temporary directory, removed afterwards.
class FileSupportTest : public ::testing::Test {
 protected:
  void SetUp() override {
    mRoot =
        std::filesystem::temp_directory_path() /
        ("kivcore_filesupport_" + std::to_string(std::hash<std::thread::id>()(std::this_thread::get_id())) +
         "_" + ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::remove_all(mRoot);
    std::filesystem::create_directories(mRoot);
  }
  void TearDown() override { std::filesystem::remove_all(mRoot); }

  std::filesystem::path mRoot;
};

TEST_F(FileSupportTest, DirsAndFilesComposePaths) {
  const Dir root(Wide(mRoot));
  const Dir sub(root, string::UTF8to16("models"));
  EXPECT_EQ(Native(sub.FullPath()), mRoot / "models");
  EXPECT_TRUE(root.Exists());
  EXPECT_FALSE(sub.Exists());
  EXPECT_FALSE(Dir().Exists());

  const File file(sub, string::UTF8to16("weights.bin"));
  EXPECT_EQ(Native(file.FullPath()), mRoot / "models" / "weights.bin");
  EXPECT_FALSE(file.Exists());
  std::filesystem::create_directories(mRoot / "models");
  std::ofstream(mRoot / "models" / "weights.bin") << "x";
  EXPECT_TRUE(sub.Exists());
  EXPECT_TRUE(file.Exists());
  EXPECT_FALSE(File(root, string::UTF8to16("models")).Exists()) << "a directory is not a file";
  const File copy = file;
  EXPECT_EQ(copy, file);
  EXPECT_TRUE(File().FullPath().empty());
}

TEST_F(FileSupportTest, ReadsWholeFilesIncludingNonAsciiNames) {
  std::string content(100'000, '\0');
  for (size_t i = 0; i < content.size(); ++i) {
    content[i] = static_cast<char>(i * 31 % 251);
  }
  const wstring name = string::UTF8to16(
      "donn\xC3\xA9"
      "es_\xE4\xB8\xAD.bin");
  const File file(Dir(Wide(mRoot)), name);
  std::ofstream(Native(file.FullPath()), std::ios::binary) << content;
  ASSERT_TRUE(file.Exists());

  const auto buffer = utility::FileUtils::SimpleReadFileIntoBuffer(file.FullPath());
  ASSERT_NE(buffer, nullptr);
  ASSERT_EQ(buffer->Size(), content.size());
  EXPECT_EQ(std::string(buffer->Buffer(), buffer->Size()), content);

  std::ofstream(mRoot / "empty.bin", std::ios::binary);
  const auto empty = utility::FileUtils::SimpleReadFileIntoBuffer(Wide(mRoot / "empty.bin"));
  ASSERT_NE(empty, nullptr);
  EXPECT_EQ(empty->Size(), 0u);
}

TEST_F(FileSupportTest, UnreadablePathsGiveNull) {
  EXPECT_EQ(utility::FileUtils::SimpleReadFileIntoBuffer(Wide(mRoot / "missing.bin")), nullptr);
  EXPECT_EQ(utility::FileUtils::SimpleReadFileIntoBuffer(Wide(mRoot)), nullptr);
  EXPECT_EQ(utility::FileUtils::SimpleReadFileIntoBuffer(wstring()), nullptr);
}

TEST_F(FileSupportTest, ResourcesDirFromEnvironmentOrExecutable) {
  ASSERT_EQ(setenv("KIVCORE_RESOURCES_DIR", mRoot.string().c_str(), 1), 0);
  EXPECT_EQ(Native(commondirs::ResourcesDir().FullPath()), mRoot);
  unsetenv("KIVCORE_RESOURCES_DIR");

  const Dir executableDir = commondirs::ResourcesDir();
  EXPECT_TRUE(executableDir.Exists());
  const std::filesystem::path program = ::testing::internal::GetArgvs().at(0);
  EXPECT_TRUE(File(executableDir, Wide(program.filename())).Exists()) << program;
}

}  // namespace
}  // namespace kivcore::filesupport
