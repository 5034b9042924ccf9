// Hand-written minimal versions of the library's conversions: what the
// speed and soft-float call benchmarks hold the library against. Kept out of
// line (noipa) like the library's functions, so that neither is folded into
// the caller's loop or specialised on its constants.
#pragma once

#include <cmath>

#include "celestial/sidereal_time.h"
#include "mount/mount.h"

namespace scopemount::bench {

// Rotates a direction by a 3x3 matrix, nothing else.
[[gnu::noipa]] inline AnglePair MinimalRotate(const double (&m)[3][3], double lon, double lat) {
  const double cl = std::cos(lat);
  const double x = std::cos(lon) * cl, y = std::sin(lon) * cl, z = std::sin(lat);
  double rx = m[0][0] * x + m[0][1] * y + m[0][2] * z;
  double ry = m[1][0] * x + m[1][1] * y + m[1][2] * z;
  double rz = m[2][0] * x + m[2][1] * y + m[2][2] * z;
  const double n = std::sqrt(rx * rx + ry * ry + rz * rz);
  rx /= n;
  ry /= n;
  rz /= n;
  return {std::atan2(ry, rx), std::asin(rz)};
}

// Greenwich mean sidereal time (radians) of a local time `offsetHours`
// ahead of UTC: the Julian day of 0h, the sidereal time then, and the day's
// hours at the sidereal rate.
[[gnu::noipa]] inline double MinimalSiderealTime(const SYSTEMTIME& t, double offsetHours) {
  int y = t.wYear, m = t.wMonth;
  if (m <= 2) {
    y -= 1;
    m += 12;
  }
  const int a = y / 100;
  const double jd0 = std::floor(365.25 * (y + 4716)) + std::floor(30.6001 * (m + 1)) + t.wDay +
                     (2 - a + a / 4) - 1524.5;
  const double g0 = std::fmod(18.697374558 + 24.06570982441908 * (jd0 - 2451545.0), 24.0);
  const double h =
      t.wHour + t.wMinute / 60.0 + t.wSecond / 3600.0 + t.wMilliseconds / 3600.0 / 1000.0;
  return (g0 + 1.00273790935 * (h - offsetHours)) * 0.2617993877991494;
}

}  // namespace scopemount::bench
