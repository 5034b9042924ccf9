// Taking up an axis's backlash before a slow motion that reverses it: the
// axis first runs at backlashRate for backlashTime so the gears engage on
// the new side, then the real rate is set.
#pragma once

#include <cstdint>
#include <thread>

#include "mount/mount.h"
#include "platform/clock.h"

namespace scopemount {

// Take-ups shorter than this are not worth stopping the axis for.
inline constexpr uint32_t MIN_BACKLASH_TAKE_UP_MS = 20;

// True when running `axis` at `rate` needs a take-up first: the rate is
// slower than the take-up itself, the take-up lasts long enough, and the
// rate reverses the axis's last direction.
bool NeedsBacklashTakeUp(const Mount& mount, uint32_t axis, double rate);

// The take-up rate for a motion at `rate`: backlashRate in its direction.
double BacklashTakeUpRate(const Mount& mount, double rate);

// Keeps reading the tick count until `ms` have passed or stop() is true.
// A take-up lasts a few hundred milliseconds at most and must end on time,
// so it polls instead of sleeping; yielding leaves the processor to others.
template <typename Stop>
void PollFor(uint32_t ms, Stop&& stop) {
  const uint32_t start = platform::TickCount();
  while (platform::TickCount() - start < ms && !stop()) std::this_thread::yield();
}

}  // namespace scopemount
