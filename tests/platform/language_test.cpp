#include "platform/language.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>

namespace scopemount::platform {
namespace {

// Sets the three locale variables for one test and puts them back after.
class LocaleEnvironment : public ::testing::Test {
 protected:
  void SetUp() override {
    for (int i = 0; i < 3; ++i) {
      const char* v = std::getenv(NAMES[i]);
      saved_[i] = v != nullptr ? std::optional<std::string>(v) : std::nullopt;
      unsetenv(NAMES[i]);
    }
  }
  void TearDown() override {
    for (int i = 0; i < 3; ++i) {
      if (saved_[i]) {
        setenv(NAMES[i], saved_[i]->c_str(), 1);
      } else {
        unsetenv(NAMES[i]);
      }
    }
  }
  static constexpr const char* NAMES[3] = {"LC_ALL", "LC_MESSAGES", "LANG"};
  std::optional<std::string> saved_[3];
};

TEST(LanguageIdOfLocale, ChineseRegionsAndEverythingElse) {
  EXPECT_EQ(LanguageIdOfLocale("zh_CN.UTF-8"), 0x0804);
  EXPECT_EQ(LanguageIdOfLocale("zh_TW"), 0x0404);
  EXPECT_EQ(LanguageIdOfLocale("zh_HK.UTF-8"), 0x0C04);
  EXPECT_EQ(LanguageIdOfLocale("zh_SG"), 0x1004);
  EXPECT_EQ(LanguageIdOfLocale("zh_MO@euro"), 0x1404);
  EXPECT_EQ(LanguageIdOfLocale("zh_CNX"), 0x0409) << "a longer region is another locale";
  EXPECT_EQ(LanguageIdOfLocale("zh"), 0x0409);
  EXPECT_EQ(LanguageIdOfLocale("de_DE.UTF-8"), 0x0409);
  EXPECT_EQ(LanguageIdOfLocale("C"), 0x0409);
  EXPECT_EQ(LanguageIdOfLocale(nullptr), 0x0409);
}

TEST_F(LocaleEnvironment, FirstNonEmptyVariableWinsOnEveryCall) {
  EXPECT_EQ(CurrentLanguageId(), 0x0409) << "nothing set";
  setenv("LANG", "zh_TW.UTF-8", 1);
  EXPECT_EQ(CurrentLanguageId(), 0x0404);
  setenv("LC_MESSAGES", "zh_CN.UTF-8", 1);
  EXPECT_EQ(CurrentLanguageId(), 0x0804) << "LC_MESSAGES before LANG";
  setenv("LC_ALL", "", 1);
  EXPECT_EQ(CurrentLanguageId(), 0x0804) << "an empty LC_ALL is skipped";
  setenv("LC_ALL", "en_GB.UTF-8", 1);
  EXPECT_EQ(CurrentLanguageId(), 0x0409) << "LC_ALL before everything";
}

}  // namespace
}  // namespace scopemount::platform
