// Slew tuning both simulators share.
#pragma once

namespace scopemount {

// A negative approach goes this far past the target, so the last approach
// of every slew is a short positive move, as on a geared mount.
inline constexpr double SIMULATOR_APPROACH_OVERSHOOT = 0.03490658503988659;  // 2 degrees
// Seconds of sky motion added to an equatorial target: about what the
// last pass of a slew takes.
inline constexpr double SIMULATOR_SLEW_LEAD_TIME = 2.0;

}  // namespace scopemount
