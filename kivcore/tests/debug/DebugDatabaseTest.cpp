#include "kivcore/debug/DebugDatabase.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "kivcore/string/StringConversions.h"

namespace kivcore::debug {
namespace {

std::filesystem::path WriteTempFile(const std::string& name, const std::string& content) {
  const std::filesystem::path path =
      std::filesystem::temp_directory_path() /
      (name + "_" + std::to_string(std::hash<std::thread::id>()(std::this_thread::get_id())));
  std::ofstream(path, std::ios::binary) << content;
  return path;
}

TEST(DebugDatabaseTest, SettingsTextIsParsedAndValuesKeptExactly) {
  DebugDatabase database;
  const size_t loaded = database.LoadFromString(
      "\xEF\xBB\xBF# a comment\r\n"
      "  kivml.BatchSizeMultiplier =  4 \r\n"
      "\n"
      "KIVSE.ORT.ProfileModels=TRUE\n"
      "   # indented comment = not an entry\n"
      "no equals sign\n"
      " = no key\n"
      "empty=\n"
      "url = http://host/a=b#frag");
  EXPECT_EQ(loaded, 4u);
  EXPECT_EQ(database.GetEntry("kivml.BatchSizeMultiplier"), "4");
  EXPECT_EQ(database.GetEntry("KIVSE.ORT.ProfileModels"), "TRUE");
  EXPECT_EQ(database.GetEntry("url"), "http://host/a=b#frag");
  EXPECT_TRUE(database.HasEntry("empty"));
  EXPECT_EQ(database.GetEntry("empty", "fallback"), "");
  EXPECT_FALSE(database.HasEntry("# a comment"));
  EXPECT_FALSE(database.HasEntry("kivse.ort.profilemodels"));  // keys are case sensitive too

  database.SetEntry("flag", "true ");
  EXPECT_EQ(database.GetEntry("flag"), "true ");
  EXPECT_NE(database.GetEntry("flag"), "true");
  EXPECT_EQ(database.GetEntry(string::ToU8("flag")), string::ToU8("true "));
  EXPECT_EQ(database.GetEntry(string::ToU8("absent")), u8string());
  EXPECT_EQ(database.GetEntry(string::ToU8("absent"), string::ToU8("d")), string::ToU8("d"));
}

TEST(DebugDatabaseTest, SettingsStringLaterEntriesWin) {
  DebugDatabase database;
  EXPECT_EQ(database.LoadFromSettingsString("a=1; kivml.BatchSizeMultiplier = 8 ;;junk;a=2"), 3u);
  EXPECT_EQ(database.GetEntry("a"), "2");
  EXPECT_EQ(database.GetEntry("kivml.BatchSizeMultiplier"), "8");
}

TEST(DebugDatabaseTest, LoadsFilesAndReportsUnreadableOnes) {
  DebugDatabase database;
  const std::filesystem::path path = WriteTempFile("kivcore_debugdb_file", "x = from file\ny=2\n");
  EXPECT_TRUE(database.LoadFromFile(path.string()));
  EXPECT_EQ(database.GetEntry("x"), "from file");
  EXPECT_EQ(database.GetEntry("y"), "2");
  std::filesystem::remove(path);
  EXPECT_FALSE(database.LoadFromFile(path.string()));
  EXPECT_EQ(database.GetEntry("x"), "from file");
}

TEST(DebugDatabaseTest, EnvironmentFileThenSettingsString) {
  const std::filesystem::path path =
      WriteTempFile("kivcore_debugdb_env", "KIVSE.ORT.ProfileModels = file\nonly.in.file=1\n");
  ASSERT_EQ(setenv(DebugDatabase::kFileVariable, path.string().c_str(), 1), 0);
  ASSERT_EQ(setenv(DebugDatabase::kSettingsVariable, "KIVSE.ORT.ProfileModels=settings;kivml.Other=3", 1), 0);
  DebugDatabase database;
  database.LoadFromEnvironment();
  unsetenv(DebugDatabase::kFileVariable);
  unsetenv(DebugDatabase::kSettingsVariable);
  std::filesystem::remove(path);
  EXPECT_EQ(database.GetEntry("KIVSE.ORT.ProfileModels"), "settings");
  EXPECT_EQ(database.GetEntry("only.in.file"), "1");
  EXPECT_EQ(database.GetEntry("kivml.Other"), "3");
  EXPECT_EQ(&DebugDatabase::Instance(), &DebugDatabase::Instance());
}

TEST(DebugDatabaseTest, ChangeCountMovesOnlyOnChanges) {
  DebugDatabase database;
  uint64_t count = database.GetChangeCount();
  database.SetEntry("k", "v");
  EXPECT_GT(database.GetChangeCount(), count);
  count = database.GetChangeCount();
  database.SetEntry("k", "v");
  EXPECT_EQ(database.GetChangeCount(), count);
  database.SetEntry("k", "w");
  EXPECT_GT(database.GetChangeCount(), count);
  count = database.GetChangeCount();
  EXPECT_FALSE(database.RemoveEntry("absent"));
  EXPECT_EQ(database.GetChangeCount(), count);
  EXPECT_TRUE(database.RemoveEntry("k"));
  EXPECT_GT(database.GetChangeCount(), count);
  EXPECT_FALSE(database.HasEntry("k"));
}

TEST(DebugDatabaseTest, ConcurrentReadersAndWriters) {
  DebugDatabase database;
  std::vector<std::thread> threads;
  for (int t = 0; t < 2; ++t) {
    threads.emplace_back([&database, t] {
      for (int i = 0; i < 500; ++i) {
        database.SetEntry("key" + std::to_string(t), std::to_string(i));
      }
    });
    threads.emplace_back([&database, t] {
      for (int i = 0; i < 500; ++i) {
        const std::string value = database.GetEntry("key" + std::to_string(t), "0");
        EXPECT_LT(std::stoi(value), 500);
      }
    });
  }
  for (auto& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(database.GetEntry("key0"), "499");
  EXPECT_EQ(database.GetEntry("key1"), "499");
}

}  // namespace
}  // namespace kivcore::debug
