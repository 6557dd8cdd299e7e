#include <gtest/gtest.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "CLI11Include.h"
#include "CommandLine.h"
#include "Settings.h"
#include "kivcore/config/InitializerRegistrar.h"
#include "kivcore/debug/DebugDatabase.h"
#include "kivml/Settings.h"

namespace kivml::cli {
namespace {

using kivml::settings::SettingKind;

TEST(KivmlToolSettings, EveryKeyTheLibraryReadsIsKnown) {
  for (const kivml::settings::Setting& setting : kivml::settings::kAllSettings) {
    const kivml::settings::Setting* found = Settings::Find(setting.key);
    ASSERT_NE(found, nullptr) << setting.key;
    EXPECT_EQ(found->kind, setting.kind) << setting.key;
    EXPECT_FALSE(Settings::Misreading(setting, setting.defaultValue)) << setting.key;
  }
  EXPECT_EQ(Settings::Find("kivml.BatchSizeMultipler"), nullptr);
  EXPECT_EQ(Settings::Find("kivml.predictionlanes"), nullptr);  // keys are exact, as in the database
}

// Values the library reads as meant, and values it would read otherwise, for each kind of setting.
TEST(KivmlToolSettings, ValuesAreCheckedAsTheLibraryReadsTheirKind) {
  struct Kind {
    SettingKind kind;
    std::vector<std::string_view> meant;
    std::vector<std::string_view> misread;
    std::string_view takes;
  };
  const std::vector<Kind> kinds{
      {SettingKind::kWholeNumber,
       {"0", "16", " 4 "},
       {"", "-1", "1O0", "0x10", "4.0", "auto", "99999999999999999999"},
       "a whole number"},
      // On for exactly "true": anything else is off, whatever it looks like.
      {SettingKind::kTrueOrFalse, {"true", "false"}, {"TRUE", "1", "0", "yes", " true", ""}, "true or false"},
      // Off for "false" or "0": "no" and "off" would turn it on.
      {SettingKind::kOnUnlessOff,
       {"true", "false", "1", "0"},
       {"no", "off", "False", ""},
       "true, false, 1 or 0"},
  };
  for (const Kind& kind : kinds) {
    for (const kivml::settings::Setting& setting : kivml::settings::kAllSettings) {
      if (setting.kind != kind.kind) {
        continue;
      }
      for (const std::string_view value : kind.meant) {
        EXPECT_FALSE(Settings::Misreading(setting, value)) << setting.key << " = '" << value << "'";
      }
      for (const std::string_view value : kind.misread) {
        EXPECT_EQ(Settings::Misreading(setting, value), std::optional<std::string>(kind.takes))
            << setting.key << " = '" << value << "'";
      }
    }
  }
}

TEST(KivmlToolSettings, AChildProcessGetsTheSameSettings) {
  const auto parse = [](Settings& settings, std::vector<std::string> arguments) {
    CLI::App app;
    settings.AddOptions(app);
    std::reverse(arguments.begin(), arguments.end());  // CLI11 takes them last first
    app.parse(arguments);
  };
  Settings first;
  parse(first,
        {"--settings", "-odd name.txt", "--set", "a=-1", "--set", "b=x=y", "--profile", "--trace", "*=7"});
  const std::vector<std::string> arguments = first.Arguments();
  EXPECT_EQ(arguments, (std::vector<std::string>{"--settings=-odd name.txt", "--set=a=-1", "--set=b=x=y",
                                                 "--profile", "--trace=*=7"}));
  Settings second;
  parse(second, arguments);
  EXPECT_EQ(second.Arguments(), arguments);
  EXPECT_TRUE(Settings().Arguments().empty());
}

// Some settings are read only as the library initialises (kivml.AllowSpinning makes ONNX Runtime's
// shared pools then): the command line must have put them in place by then.
TEST(KivmlToolCommandLine, SettingsAreInPlaceWhenTheLibraryInitialises) {
  const std::string_view key = kivml::settings::kAllowSpinning.key;
  std::optional<std::string> seen;
  const kivcore::config::InitializerRegistrar watch(
      "kivml tool test: settings at initialisation", kivcore::config::kInitializerDefault, [&] {
        seen = kivcore::debug::DebugDatabase::Instance().GetEntry(key);
        return true;
      });
  std::vector<std::string> arguments{"kivml", "info", "no_such_model.onnx", "--set",
                                     "kivml.AllowSpinning=true"};
  std::vector<char*> argv;
  for (std::string& argument : arguments) {
    argv.push_back(argument.data());
  }
  ::testing::internal::CaptureStderr();
  const int status = CommandLine().Run(static_cast<int>(argv.size()), argv.data());
  const std::string errors = ::testing::internal::GetCapturedStderr();
  kivcore::debug::DebugDatabase::Instance().RemoveEntry(key);

  EXPECT_EQ(status, 1);  // no such model, found out once the library had initialised
  EXPECT_NE(errors.find("no_such_model.onnx"), std::string::npos) << errors;
  EXPECT_EQ(seen, std::optional<std::string>("true"));
}

}  // namespace
}  // namespace kivml::cli
