// The motion workers: every motion that takes time runs on one of these
// threads, so the operations that start them return at once and the host
// polls the status while the mount moves.
//
// - the equatorial slew worker chases a sky position that turns with the
//   sky, in up to six passes, and starts tracking when it arrives;
// - the axis-target slew worker runs the same passes toward fixed axis
//   angles and leaves the mount standing;
// - the axis-motion worker takes up backlash when an axis reverses, then
//   sets it running at the requested rate.
//
// Each takes the axes over from the worker before it (TakeOverAxes), drives
// the hardware only through Mount operations, and ends with a MountError
// that nobody reads: the host sees the outcome through the status getters.
#pragma once

#include <cstdint>

#include "mount/mount.h"

namespace scopemount {

// Passes of one slew; each re-aims from where the previous one ended.
inline constexpr int SLEW_PASS_COUNT = 6;
// Pause between two status polls while an axis reports slewing.
inline constexpr uint32_t SLEW_STATUS_POLL_MS = 200;

// Starts the equatorial slew serving `request` toward gotoTarget (already
// stored with its gotoStartTick and the run flags). Returns Ok; a thread
// that cannot be started leaves the run flags cleared.
int32_t StartEquatorialSlew(Mount& mount, uint32_t request);

// Stores the axis targets, claims both axes for the slew (a new request,
// run flags set, tracking bit and trackingWanted cleared, the Alt/Az
// tracking loop halted) and starts the axis-target slew
// worker. The geometry layers' GotoAxes and GotoHorizontal end here.
// InvalidParameter for a target that is not finite, else Ok.
int32_t StartAxisTargetSlew(Mount& mount, double angle0, double angle1);

// Starts the axis-motion worker serving `request` on `axis` (its rate
// already in axisRate and its run flag set).
int32_t StartAxisMotion(Mount& mount, uint32_t axis, uint32_t request);

}  // namespace scopemount
