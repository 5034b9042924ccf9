// The wall-speed clock on POSIX: the monotonic clock behind std::chrono.
#include "platform/clock.h"

namespace scopemount::platform {

uint64_t SystemClock::NowMs() const {
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                   std::chrono::steady_clock::now().time_since_epoch())
                                   .count());
}

}  // namespace scopemount::platform
