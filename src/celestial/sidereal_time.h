// Greenwich mean sidereal time of a local civil time.
#pragma once

#include <cstdint>

#include "scopemount.h"

namespace scopemount {

// Radians, not reduced into one turn (may be negative before J2000.0 or
// exceed 2 pi). utcOffsetHours is local time minus UTC; a nonzero
// daylightSaving adds one hour to it. The local date fixes the day number.
double GreenwichSiderealTime(const SYSTEMTIME& localTime, double utcOffsetHours,
                             int32_t daylightSaving);

}  // namespace scopemount
