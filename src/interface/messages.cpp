#include "interface/messages.h"

#include "platform/language.h"

namespace scopemount {

namespace {

enum Column { ENGLISH = 0, SIMPLIFIED = 1, TRADITIONAL = 2 };

// Only the exact identifiers choose Chinese; Hong Kong, Singapore and Macau
// Chinese read English, as every other language does.
Column ColumnOf(uint16_t languageId) {
  if (languageId == platform::LANGUAGE_CHINESE_SIMPLIFIED) return SIMPLIFIED;
  if (languageId == platform::LANGUAGE_CHINESE_TRADITIONAL) return TRADITIONAL;
  return ENGLISH;
}

struct Message {
  int32_t code;
  const char16_t* text[3];
};

// The texts are the product's own, spelling included.
constexpr Message MESSAGES[] = {
    {1, {u"Invalid mount ID", u"不支持的托架编号", u"不支持的托架編號"}},
    {2, {u"Already connected", u"望远镜连接已经建立", u"望遠鏡連接已經建立"}},
    {3, {u"Haven't connecte to a telescope", u"尚未连接到望远镜", u"尚未連接到望遠鏡"}},
    {4, {u"Invalid parameter/data", u"无效的参数或数据", u"無效的參數或數據"}},
    {5, {u"Serial port busy", u"串口忙", u"串口忙"}},
    {100,
     {u"No response from RA/Az axis", u"赤纬轴或方位角轴电机控制器无响应",
      u"赤緯軸或方位角軸電機控制器無響應"}},
    {101,
     {u"No response from Dec/Alt axis", u"赤经轴或俯仰角轴电机控制器无响应",
      u"赤經軸或俯仰角軸電機控制器無響應"}},
    {102, {u"Axis busy", u"指定轴正忙", u"指定軸正忙"}},
    {103, {u"Target position too high", u"目标仰角过高", u"目標仰角過高"}},
    {104, {u"Target position too low", u"目标仰角过低", u"目標仰角過低"}},
    {105, {u"User interrupt", u"用户中断", u"用戶中斷"}},
    {200, {u"Align failed", u"校准失败", u"校準失敗"}},
    {300,
     {u"Called an unimplement method", u"调用了一个未实现的方法", u"调用了一个未实现的方法"}},
    {400,
     {u"The saved alignment data is invalid or not for this telescope mount.",
      u"保存的校准数据无效或不适合这一台望远镜托架", u"保存的校準數據無效或不適合這一台望遠鏡"}},
};

constexpr const char16_t* UNKNOWN_ERROR[3] = {u"Unknown error ID", u"未定义的错误代码",
                                              u"未定義的錯誤代碼"};

constexpr const char16_t* MODEL_NAMES[MODEL_COUNT][3] = {
    {u"Marvane Alt/Az Mount", u"Marvane 经纬仪", u"Marvane 經緯儀"},
    {u"Marvane EQ Mount", u"Marvane 赤道仪", u"Marvane 赤道儀"},
    {u"Hollin Alt/Az Mount", u"Hollin 经纬仪", u"Hollin 經緯儀"},
    {u"Hollin EQ Mount", u"Hollin 赤道仪", u"Hollin 赤道儀"},
    {u"Dravic EQ-B Mount", u"Dravic 赤道仪", u"Dravic 赤道儀"},
    {u"Dravic Tessamo Mount", u"Dravic Tessamo 经纬仪", u"Dravic Tessamo 經緯儀"},
    {u"EQ Mount Simulator", u"仿真赤道仪", u"仿真赤道儀"},
    {u"Alt/Az Mount Simulator", u"仿真经纬仪", u"仿真經緯儀"},
    {u"Marvane Corvel K-1 Alt/Az Mount", u"Marvane Corvel K-1 经纬仪",
     u"Marvane Corvel K-1 經緯儀"},
    {u"Marvane Corvel K-2 Alt/Az Mount", u"Marvane Corvel K-2 经纬仪",
     u"Marvane Corvel K-2 經緯儀"},
    {u"Dravic Quillo-1 Alt/Az Mount", u"Dravic Quillo-1 经纬仪", u"Dravic Quillo-1 經緯儀"},
    {u"Dravic Quillo-2 Alt/Az Mount", u"Dravic Quillo-2 经纬仪", u"Dravic Quillo-2 經緯儀"},
};

}  // namespace

const char16_t* ErrorText(int32_t code, uint16_t languageId) {
  const Column column = ColumnOf(languageId);
  for (const Message& message : MESSAGES) {
    if (message.code == code) return message.text[column];
  }
  return UNKNOWN_ERROR[column];
}

const char16_t* ModelName(int32_t model, uint16_t languageId) {
  if (static_cast<uint32_t>(model) >= static_cast<uint32_t>(MODEL_COUNT)) return nullptr;
  return MODEL_NAMES[model][ColumnOf(languageId)];
}

void CopyText(const char16_t* text, char16_t* buffer) {
  do {
    *buffer++ = *text;
  } while (*text++ != u'\0');
}

}  // namespace scopemount
