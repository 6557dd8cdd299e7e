// The one table of settings, the README's copy of it, and the defaults the code falls back to.

#include <gtest/gtest.h>

#include <fstream>
#include <map>
#include <set>
#include <sstream>
#include <string>

#include "LocalEvaluator.h"
#include "kivml/Settings.h"

namespace kivml::settings {
namespace {

struct Row {
  std::string defaultValue;
  std::string meaning;
};

// The rows of the README's settings table, by key: "| `key` | `default` | meaning |".
std::map<std::string, Row> ReadmeRows() {
  std::ifstream readme(KIVML_README_PATH);
  EXPECT_TRUE(readme) << "cannot read " << KIVML_README_PATH;
  std::map<std::string, Row> rows;
  bool inTable = false;
  for (std::string line; std::getline(readme, line);) {
    if (line == "| Key | Default | Meaning |") {
      inTable = true;
      continue;
    }
    if (!inTable || line.rfind("|---", 0) == 0) {
      continue;
    }
    if (line.rfind("| `", 0) != 0) {
      break;  // the table ends
    }
    std::stringstream cells(line.substr(1));
    std::string key;
    std::string defaultValue;
    std::string meaning;
    std::getline(cells, key, '|');
    std::getline(cells, defaultValue, '|');
    std::getline(cells, meaning, '|');
    const auto unquote = [](const std::string& cell) { return cell.substr(2, cell.size() - 4); };
    EXPECT_TRUE(
        rows.emplace(unquote(key), Row{unquote(defaultValue), meaning.substr(1, meaning.size() - 2)}).second)
        << "twice in the README: " << key;
  }
  return rows;
}

TEST(SettingsTableTest, TheReadmeListsEverySettingAsTheTableHasIt) {
  std::map<std::string, Row> rows = ReadmeRows();
  std::set<std::string_view> keys;
  for (const Setting& setting : kAllSettings) {
    EXPECT_TRUE(keys.insert(setting.key).second) << "twice in the table: " << setting.key;
    const auto row = rows.find(std::string(setting.key));
    if (row == rows.end()) {
      ADD_FAILURE() << "not in the README: " << setting.key;
      continue;
    }
    EXPECT_EQ(row->second.defaultValue, setting.defaultValue) << setting.key;
    EXPECT_EQ(row->second.meaning, setting.meaning) << setting.key;
    rows.erase(row);
  }
  for (const auto& [key, row] : rows) {
    ADD_FAILURE() << "in the README but read by nothing: " << key;
  }
}

TEST(SettingsTableTest, TheIdleSpinDefaultIsTheOneTheWorkerFallsBackTo) {
  EXPECT_EQ(kIdleSpinMicroseconds.defaultValue, std::to_string(LocalEvaluator::kDefaultIdleSpin.count()));
}

}  // namespace
}  // namespace kivml::settings
