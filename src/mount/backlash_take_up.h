// Taking up an axis's backlash before a slow motion that reverses it: the
// axis first runs at backlashRate for backlashTime so the gears engage on
// the new side, then the real rate is set.
#pragma once

#include <cstdint>

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

// Waits until `ms` have passed or done() holds, whichever comes first.
// The wait sleeps on the mount's motion notice, which every change of a
// run flag, the tracking bit or the release tells: it ends on time, or at
// once when the worker must stop, and costs no processor time meanwhile.
template <typename Done>
void WaitOutTakeUp(Mount& mount, uint32_t ms, Done&& done) {
  mount.motionNotice.WaitFor(ms, done);
}

}  // namespace scopemount
