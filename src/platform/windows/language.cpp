// The device language on Windows: the calling thread's locale. It starts as
// the user's default locale, and a host that shows another language in one
// thread (SetThreadLocale) gets its texts in that language there.
#include <windows.h>

#include "platform/language.h"

namespace scopemount::platform {

uint16_t CurrentLanguageId() { return LANGIDFROMLCID(GetThreadLocale()); }

}  // namespace scopemount::platform
