// The device language, as the platform's 16-bit language identifier.
#pragma once

#include <cstdint>

namespace scopemount::platform {

inline constexpr uint16_t LANGUAGE_ENGLISH_US = 0x0409;
inline constexpr uint16_t LANGUAGE_CHINESE_SIMPLIFIED = 0x0804;
inline constexpr uint16_t LANGUAGE_CHINESE_TRADITIONAL = 0x0404;

// Read on every call. On POSIX: the locale named by the first non-empty of
// LC_ALL, LC_MESSAGES and LANG (see LanguageIdOfLocale). On Windows: the
// calling thread's locale, which starts as the user's.
uint16_t CurrentLanguageId();

// The identifier of one locale name such as "zh_TW.UTF-8": zh_CN, zh_TW,
// zh_HK, zh_SG and zh_MO map to their identifiers; anything else is US
// English.
uint16_t LanguageIdOfLocale(const char* locale);

}  // namespace scopemount::platform
