#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "scopemount.h"

namespace {

// The language comes from the locale on every call; each test sets LC_ALL.
class Messages : public ::testing::Test {
 protected:
  void SetUp() override { setenv("LC_ALL", "C", 1); }
  void TearDown() override { unsetenv("LC_ALL"); }

  static std::u16string Error(int32_t code) {
    ScopeChar16 buffer[SCOPE_TEXT_BUFFER_UNITS];
    ScopeGetErrorText(code, buffer);
    return buffer;
  }
  static std::u16string Model(int32_t model) {
    ScopeChar16 buffer[SCOPE_TEXT_BUFFER_UNITS];
    if (ScopeGetModelName(model, buffer) != SCOPE_OK) return u"<refused>";
    return buffer;
  }
};

TEST_F(Messages, EnglishTextsAsTheProductHasThem) {
  EXPECT_EQ(Error(3), u"Haven't connecte to a telescope") << "spelling kept";
  EXPECT_EQ(Error(300), u"Called an unimplement method");
  const std::u16string longest = Error(400);
  EXPECT_EQ(longest, u"The saved alignment data is invalid or not for this telescope mount.");
  EXPECT_EQ(longest.size() + 1, static_cast<size_t>(SCOPE_TEXT_BUFFER_UNITS))
      << "the documented buffer holds the longest text";
  for (int32_t code : {0, -1, 6, 99, 106, 201, 401}) {
    EXPECT_EQ(Error(code), u"Unknown error ID") << code;
  }
  EXPECT_EQ(Model(11), u"Dravic Quillo-2 Alt/Az Mount");
  EXPECT_EQ(Model(6), u"EQ Mount Simulator");
}

TEST_F(Messages, ChineseColumnsChosenByTheExactLanguage) {
  setenv("LC_ALL", "zh_CN.UTF-8", 1);
  EXPECT_EQ(Error(3), u"尚未连接到望远镜");
  EXPECT_EQ(Error(0), u"未定义的错误代码");
  EXPECT_EQ(Model(7), u"仿真经纬仪") << "simulator names have no Latin part";
  EXPECT_EQ(Model(5), u"Dravic Tessamo 经纬仪");
  setenv("LC_ALL", "zh_TW.UTF-8", 1);
  EXPECT_EQ(Error(3), u"尚未連接到望遠鏡");
  EXPECT_EQ(Error(300), u"调用了一个未实现的方法") << "same characters as the Simplified column";
  EXPECT_EQ(Error(400), u"保存的校準數據無效或不適合這一台望遠鏡");
  EXPECT_EQ(Model(8), u"Marvane Corvel K-1 經緯儀");
  setenv("LC_ALL", "zh_HK.UTF-8", 1);
  EXPECT_EQ(Error(3), u"Haven't connecte to a telescope") << "Hong Kong Chinese reads English";
}

TEST_F(Messages, BadArgumentsWriteNothing) {
  ScopeGetErrorText(1, nullptr);  // must simply return
  ScopeChar16 buffer[SCOPE_TEXT_BUFFER_UNITS];
  for (auto& unit : buffer) unit = u'#';
  EXPECT_EQ(ScopeGetModelName(12, buffer), SCOPE_INVALID_MOUNT_ID);
  EXPECT_EQ(ScopeGetModelName(-1, buffer), SCOPE_INVALID_MOUNT_ID);
  EXPECT_EQ(buffer[0], u'#') << "a refused model leaves the buffer";
  EXPECT_EQ(ScopeGetModelName(3, nullptr), SCOPE_INVALID_PARAMETER);
  // The terminator is copied too: a shorter text after a longer one ends there.
  ScopeGetErrorText(400, buffer);
  ScopeGetErrorText(5, buffer);
  EXPECT_EQ(std::u16string(buffer), u"Serial port busy");
}

}  // namespace
