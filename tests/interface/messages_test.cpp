// The library's texts by language: error texts and model names, chosen
// from the locale on every call.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "scopemount.h"

namespace {

std::u16string Error(int32_t code) {
  ScopeChar16 buffer[SCOPE_TEXT_BUFFER_UNITS];
  ScopeGetErrorText(code, buffer);
  return buffer;
}

std::u16string Model(int32_t model) {
  ScopeChar16 buffer[SCOPE_TEXT_BUFFER_UNITS];
  if (ScopeGetModelName(model, buffer) != SCOPE_OK) return u"<refused>";
  return buffer;
}

constexpr int32_t MODEL = 1000;  // added to a model number in the table below

TEST(Messages, TextsByLanguage) {
  const struct {
    const char* locale;
    int32_t code;  // an error code, or MODEL + a model number
    std::u16string text;
  } cases[] = {
      {"C", 3, u"Haven't connecte to a telescope"},  // the product's spelling, kept
      {"C", 300, u"Called an unimplement method"},
      {"C", 400, u"The saved alignment data is invalid or not for this telescope mount."},
      {"C", 0, u"Unknown error ID"},     {"C", 106, u"Unknown error ID"},
      {"C", MODEL + 11, u"Dravic Quillo-2 Alt/Az Mount"},
      {"C", MODEL + 6, u"EQ Mount Simulator"},
      {"C", MODEL + 12, u"<refused>"},   {"C", MODEL - 1, u"<refused>"},
      {"zh_CN.UTF-8", 3, u"尚未连接到望远镜"},
      {"zh_CN.UTF-8", 0, u"未定义的错误代码"},
      {"zh_CN.UTF-8", MODEL + 7, u"仿真经纬仪"},  // simulator names have no Latin part
      {"zh_CN.UTF-8", MODEL + 5, u"Dravic Tessamo 经纬仪"},
      {"zh_TW.UTF-8", 3, u"尚未連接到望遠鏡"},
      {"zh_TW.UTF-8", 300, u"调用了一个未实现的方法"},  // as the Simplified column has it
      {"zh_TW.UTF-8", 400, u"保存的校準數據無效或不適合這一台望遠鏡"},
      {"zh_TW.UTF-8", MODEL + 8, u"Marvane Corvel K-1 經緯儀"},
      {"zh_HK.UTF-8", 3, u"Haven't connecte to a telescope"},  // Hong Kong reads English
  };
  for (const auto& c : cases) {
    setenv("LC_ALL", c.locale, 1);
    EXPECT_EQ(c.code >= MODEL - 1 ? Model(c.code - MODEL) : Error(c.code), c.text)
        << c.locale << " " << c.code;
  }
  unsetenv("LC_ALL");
}

TEST(Messages, TheBufferHoldsTheLongestTextAndBadArgumentsWriteNothing) {
  setenv("LC_ALL", "C", 1);
  EXPECT_EQ(Error(400).size() + 1, static_cast<size_t>(SCOPE_TEXT_BUFFER_UNITS));
  ScopeChar16 buffer[SCOPE_TEXT_BUFFER_UNITS];
  for (auto& unit : buffer) unit = u'#';
  EXPECT_EQ(ScopeGetModelName(12, buffer), SCOPE_INVALID_MOUNT_ID);
  EXPECT_EQ(buffer[0], u'#') << "a refused model leaves the buffer";
  EXPECT_EQ(ScopeGetModelName(3, nullptr), SCOPE_INVALID_PARAMETER);
  // The terminator is copied too: a shorter text after a longer one ends there.
  ScopeGetErrorText(400, buffer);
  ScopeGetErrorText(5, buffer);
  EXPECT_EQ(std::u16string(buffer), u"Serial port busy");
  unsetenv("LC_ALL");
}

}  // namespace
