// The wall-speed clock on Windows: the system's millisecond tick count, in
// its 64-bit form so it never wraps here (TickCount() still hands out the
// low 32 bits, which wrap as the classic counter does).
#include <windows.h>

#include "platform/clock.h"

namespace scopemount::platform {

uint64_t SystemClock::NowMs() const { return GetTickCount64(); }

}  // namespace scopemount::platform
