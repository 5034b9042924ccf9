#include "platform/language.h"

#include <cstring>

namespace scopemount::platform {

namespace {

struct LocaleLanguage {
  const char* prefix;
  uint16_t id;
};

constexpr LocaleLanguage CHINESE_LOCALES[] = {
    {"zh_CN", LANGUAGE_CHINESE_SIMPLIFIED}, {"zh_TW", LANGUAGE_CHINESE_TRADITIONAL},
    {"zh_HK", 0x0C04},                      {"zh_SG", 0x1004},
    {"zh_MO", 0x1404},
};

// A locale name matches a region when it is that region, maybe followed by
// an encoding (".UTF-8") or a modifier ("@...").
bool NamesRegion(const char* locale, const char* prefix) {
  const size_t n = std::strlen(prefix);
  if (std::strncmp(locale, prefix, n) != 0) return false;
  return locale[n] == '\0' || locale[n] == '.' || locale[n] == '@';
}

}  // namespace

uint16_t LanguageIdOfLocale(const char* locale) {
  if (locale == nullptr) return LANGUAGE_ENGLISH_US;
  for (const LocaleLanguage& entry : CHINESE_LOCALES) {
    if (NamesRegion(locale, entry.prefix)) return entry.id;
  }
  return LANGUAGE_ENGLISH_US;
}

}  // namespace scopemount::platform
