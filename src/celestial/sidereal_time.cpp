#include "celestial/sidereal_time.h"

#include <cmath>

namespace scopemount {

namespace {

constexpr double J2000_JULIAN_DATE = 2451545.0;
constexpr double GMST_AT_J2000_HOURS = 18.697374558;
constexpr double GMST_HOURS_PER_DAY = 24.06570982441908;
constexpr double SIDEREAL_PER_SOLAR = 1.00273790935;
constexpr double HOURS_TO_RADIANS = 0.2617993877991494;  // pi / 12

// Julian date of 0 h UT on a Gregorian calendar date (no 1582 switch).
double JulianDateAtMidnight(uint16_t year, uint16_t month, uint16_t day) {
  int32_t y = year;
  int32_t m = month;
  if (m <= 2) {
    y -= 1;
    m += 12;
  }
  const int32_t a = y / 100;
  const int32_t b = 2 - a + a / 4;
  return std::floor(365.25 * (y + 4716)) + std::floor(30.6001 * (m + 1)) + day + b - 1524.5;
}

}  // namespace

double GreenwichSiderealTime(const SYSTEMTIME& localTime, double utcOffsetHours,
                             int32_t daylightSaving) {
  const double t = JulianDateAtMidnight(localTime.wYear, localTime.wMonth, localTime.wDay) -
                   J2000_JULIAN_DATE;
  // fmod keeps the sign: before J2000.0 this may be negative, and stays so.
  const double g0 = std::fmod(GMST_AT_J2000_HOURS + GMST_HOURS_PER_DAY * t, 24.0);
  const double localHours = localTime.wHour + localTime.wMinute / 60.0 +
                            localTime.wSecond / 3600.0 +
                            localTime.wMilliseconds / 3600.0 / 1000.0;
  double s = g0 + SIDEREAL_PER_SOLAR * localHours;
  const double offset = daylightSaving != 0 ? utcOffsetHours + 1.0 : utcOffsetHours;
  s = s - SIDEREAL_PER_SOLAR * offset;
  return s * HOURS_TO_RADIANS;
}

}  // namespace scopemount
