#include "kivcore/debug/DebugDatabase.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <string>
#include <thread>

#include "TestEnvironment.h"

namespace kivcore::debug {
namespace {

TEST(DebugDatabaseTest, TextIsParsedAndValuesKeptExactly) {
  DebugDatabase database;
  EXPECT_EQ(database.LoadFromString("\xEF\xBB\xBF  kivml.BatchSizeMultiplier =  4 \r\n# a comment\r\n\n"
                                    "KIVSE.ORT.ProfileModels=TRUE\n   # indented comment = not an entry\n"
                                    "no equals sign\n = no key\nempty=\nurl = http://host/a=b#frag"),
            4u);
  EXPECT_EQ(database.GetEntry("kivml.BatchSizeMultiplier"), "4");
  EXPECT_EQ(database.GetEntry("KIVSE.ORT.ProfileModels"), "TRUE");
  EXPECT_EQ(database.GetEntry("url"), "http://host/a=b#frag");
  EXPECT_EQ(database.GetEntry("empty", "fallback"), "");
  EXPECT_FALSE(database.HasEntry("# a comment"));
  EXPECT_FALSE(database.HasEntry("kivse.ort.profilemodels"));  // keys are case sensitive
  // What the loader skips without a word, with the line it is on.
  const auto parsed = DebugDatabase::ParseSettingsFile("a = 1\n# comment\nno equals sign\n\n = no key\n");
  ASSERT_EQ(parsed.size(), 3u);
  EXPECT_EQ(parsed[0].key, "a");
  EXPECT_EQ(parsed[0].value, "1");
  EXPECT_EQ(parsed[1].item, 3u);
  EXPECT_TRUE(parsed[1].key.empty());
  EXPECT_EQ(parsed[1].text, "no equals sign");
  EXPECT_EQ(parsed[2].item, 5u);
  EXPECT_TRUE(parsed[2].key.empty());

  database.SetEntry("flag", "true ");
  EXPECT_EQ(database.GetEntry("flag"), "true ");  // kept untrimmed

  EXPECT_EQ(database.LoadFromSettingsString("a=1; kivml.BatchSizeMultiplier = 8 ;;junk;a=2"), 3u);
  EXPECT_EQ(database.GetEntry("a"), "2");  // later entries win
  EXPECT_EQ(database.GetEntry("kivml.BatchSizeMultiplier"), "8");
}

TEST(DebugDatabaseTest, EnvironmentLoadsTheFileThenTheSettingsString) {
  const std::string path = ::testing::TempDir() + "kivcore_debugdb_" + std::to_string(getpid());
  std::ofstream(path, std::ios::binary) << "KIVSE.ORT.ProfileModels = file\nonly.in.file=1\n";
  ASSERT_TRUE(kivcore::test::SetEnvironment(DebugDatabase::kFileVariable, path.c_str()));
  ASSERT_TRUE(kivcore::test::SetEnvironment(DebugDatabase::kSettingsVariable,
                                            "KIVSE.ORT.ProfileModels=settings;kivml.Other=3"));
  DebugDatabase database;
  database.LoadFromEnvironment();
  kivcore::test::ClearEnvironment(DebugDatabase::kFileVariable);
  kivcore::test::ClearEnvironment(DebugDatabase::kSettingsVariable);
  std::remove(path.c_str());
  EXPECT_FALSE(database.LoadFromFile(path));  // a missing file changes nothing
  EXPECT_EQ(database.GetEntry("KIVSE.ORT.ProfileModels"), "settings");
  EXPECT_EQ(database.GetEntry("only.in.file"), "1");
  EXPECT_EQ(database.GetEntry("kivml.Other"), "3");
}

TEST(DebugDatabaseTest, ChangeCountMovesOnlyOnChanges) {
  DebugDatabase database;
  const auto moves = [&database](const auto& change) {
    const uint64_t before = database.GetChangeCount();
    change();
    return database.GetChangeCount() > before;
  };
  EXPECT_TRUE(moves([&] { database.SetEntry("k", "v"); }));
  EXPECT_FALSE(moves([&] { database.SetEntry("k", "v"); }));
  EXPECT_TRUE(moves([&] { database.SetEntry("k", "w"); }));
  EXPECT_TRUE(moves([&] { database.LoadFromSettingsString("loaded=1"); }));
  EXPECT_FALSE(moves([&] { EXPECT_FALSE(database.RemoveEntry("absent")); }));
  EXPECT_TRUE(moves([&] { EXPECT_TRUE(database.RemoveEntry("k")); }));
  EXPECT_FALSE(database.HasEntry("k"));
}

TEST(DebugDatabaseTest, ConcurrentReadersAndWriters) {
  DebugDatabase database;
  {
    std::jthread writer([&database] {
      for (int i = 0; i < 1000; ++i) {
        database.SetEntry("key", std::to_string(i));
      }
    });
    for (int i = 0; i < 1000; ++i) {
      EXPECT_LT(std::stoi(database.GetEntry("key", "0")), 1000);
    }
  }
  EXPECT_EQ(database.GetEntry("key"), "999");
}

}  // namespace
}  // namespace kivcore::debug
