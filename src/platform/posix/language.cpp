// The device language on POSIX: the locale of the environment, read on
// every call.
#include <cstdlib>
#include <initializer_list>

#include "platform/language.h"

namespace scopemount::platform {

uint16_t CurrentLanguageId() {
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = std::getenv(name);
    if (value != nullptr && value[0] != '\0') return LanguageIdOfLocale(value);
  }
  return LANGUAGE_ENGLISH_US;
}

}  // namespace scopemount::platform
