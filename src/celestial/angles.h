// Angle constants and the scalar angle routines every subsystem shares.
#pragma once

#include <cmath>
#include <initializer_list>

namespace scopemount {

inline constexpr double PI = 3.141592653589793;
inline constexpr double TWO_PI = 2.0 * PI;
inline constexpr double HALF_PI = PI / 2.0;
inline constexpr double QUARTER_PI = PI / 4.0;
inline constexpr double SIDEREAL_DAY_SECONDS = 86164.09065;
// Radians per second the sky turns; one value serves tracking and rate limits.
inline constexpr double SIDEREAL_RATE = TWO_PI / SIDEREAL_DAY_SECONDS;

constexpr double DegreesToRadians(double degrees) { return degrees / 180.0 * PI; }
constexpr double RadiansToDegrees(double radians) { return radians / PI * 180.0; }

// Reduces into [-pi, pi] with one fmod and one correction, so it costs the
// same for any input and gives NaN (never a hang) for NaN or infinity.
inline double NormalizeAngle(double angle) {
  const double r = std::fmod(angle, TWO_PI);
  if (r > PI) return r - TWO_PI;
  if (r < -PI) return r + TWO_PI;
  return r;
}

// True when no value is NaN or infinite: angles and settings that are not
// finite are refused wherever they would be stored or aimed at.
inline bool AllFinite(std::initializer_list<double> values) {
  for (double v : values) {
    if (!std::isfinite(v)) return false;
  }
  return true;
}

// Great-circle angle between (lon1, lat1) and (lon2, lat2), in [0, pi].
double AngularSeparation(double lon1, double lat1, double lon2, double lat2);

}  // namespace scopemount
