// The platform's language and port-name stand-ins.
#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <string>

#include "platform/language.h"
#include "platform/port_names.h"
#include "support/selected_port.h"

namespace scopemount::platform {
namespace {

using scopemount::testing::PathOf;

TEST(Language, ChineseRegionsAndEverythingElse) {
  EXPECT_EQ(LanguageIdOfLocale("zh_CN.UTF-8"), 0x0804);
  EXPECT_EQ(LanguageIdOfLocale("zh_TW"), 0x0404);
  EXPECT_EQ(LanguageIdOfLocale("zh_HK.UTF-8"), 0x0C04);
  EXPECT_EQ(LanguageIdOfLocale("zh_SG"), 0x1004);
  EXPECT_EQ(LanguageIdOfLocale("zh_MO@euro"), 0x1404);
  EXPECT_EQ(LanguageIdOfLocale("zh_CNX"), 0x0409) << "a longer region is another locale";
  EXPECT_EQ(LanguageIdOfLocale("zh"), 0x0409);
  EXPECT_EQ(LanguageIdOfLocale("C"), 0x0409);
  EXPECT_EQ(LanguageIdOfLocale(nullptr), 0x0409);
}

TEST(Language, FirstNonEmptyVariableWinsOnEveryCall) {
  const char* const names[3] = {"LC_ALL", "LC_MESSAGES", "LANG"};
  std::optional<std::string> saved[3];
  for (int i = 0; i < 3; ++i) {
    if (const char* v = std::getenv(names[i])) saved[i] = v;
    unsetenv(names[i]);
  }
  EXPECT_EQ(CurrentLanguageId(), 0x0409) << "nothing set";
  setenv("LANG", "zh_TW.UTF-8", 1);
  EXPECT_EQ(CurrentLanguageId(), 0x0404);
  setenv("LC_MESSAGES", "zh_CN.UTF-8", 1);
  EXPECT_EQ(CurrentLanguageId(), 0x0804) << "LC_MESSAGES before LANG";
  setenv("LC_ALL", "", 1);
  EXPECT_EQ(CurrentLanguageId(), 0x0804) << "an empty LC_ALL is skipped";
  setenv("LC_ALL", "en_GB.UTF-8", 1);
  EXPECT_EQ(CurrentLanguageId(), 0x0409) << "LC_ALL before everything";
  for (int i = 0; i < 3; ++i) {
    if (saved[i]) {
      setenv(names[i], saved[i]->c_str(), 1);
    } else {
      unsetenv(names[i]);
    }
  }
}

TEST(PortNames, BoundPathElseTheNumberedSerialDevice) {
  EXPECT_EQ(PathOf(255), "/dev/ttyS255");
  EXPECT_EQ(PathOf(256), "<none>");
  EXPECT_EQ(PathOf(-1), "<none>");
  ASSERT_TRUE(BindPortPath(7, "/dev/pts/9"));
  EXPECT_EQ(PathOf(7), "/dev/pts/9");
  EXPECT_EQ(PathOf(8), "/dev/ttyS8") << "binding one port leaves the others";
  ASSERT_TRUE(BindPortPath(7, ""));
  EXPECT_EQ(PathOf(7), "/dev/ttyS7") << "an empty path unbinds";
  ASSERT_TRUE(BindPortPath(7, "/dev/pts/9"));
  ASSERT_TRUE(BindPortPath(7, nullptr));
  EXPECT_EQ(PathOf(7), "/dev/ttyS7") << "a null path unbinds";
  EXPECT_FALSE(BindPortPath(256, "/dev/null"));
  EXPECT_FALSE(BindPortPath(-1, "/dev/null"));
  const std::string longest(MAX_PORT_PATH, 'x');
  EXPECT_TRUE(BindPortPath(3, longest.c_str()));
  EXPECT_FALSE(BindPortPath(3, (longest + "x").c_str())) << "too long for the table";
  EXPECT_EQ(PathOf(3), longest) << "a refused path changes nothing";
  BindPortPath(3, nullptr);
}

}  // namespace
}  // namespace scopemount::platform
