#include "mount/backlash_take_up.h"

#include <cmath>

namespace scopemount {

bool NeedsBacklashTakeUp(const Mount& mount, uint32_t axis, double rate) {
  // The integer test first: without backlash set (the usual case) no double
  // comparison is made, and each is a call on a CPU without an FPU.
  if (mount.backlashTime[axis] <= MIN_BACKLASH_TAKE_UP_MS) return false;
  if (!(std::fabs(rate) < mount.backlashRate)) return false;
  const uint32_t lastPositive = mount.axisDirection[axis];
  return (lastPositive == 1 && rate < 0.0) || (lastPositive == 0 && rate >= 0.0);
}

double BacklashTakeUpRate(const Mount& mount, double rate) {
  const double takeUp = mount.backlashRate;
  return rate > 0.0 ? takeUp : -takeUp;
}

}  // namespace scopemount
