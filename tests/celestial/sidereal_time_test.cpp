#include "celestial/sidereal_time.h"

#include <gtest/gtest.h>

#include <cmath>

#include "celestial/angles.h"

namespace scopemount {
namespace {

SYSTEMTIME At(uint16_t year, uint16_t month, uint16_t day, uint16_t hour = 0,
              uint16_t minute = 0, uint16_t second = 0, uint16_t ms = 0) {
  SYSTEMTIME t{};
  t.wYear = year;
  t.wMonth = month;
  t.wDay = day;
  t.wHour = hour;
  t.wMinute = minute;
  t.wSecond = second;
  t.wMilliseconds = ms;
  t.wDayOfWeek = 6;  // never read
  return t;
}

double ToSeconds(double radians) {
  double hours = std::fmod(radians * 12.0 / PI, 24.0);
  if (hours < 0) hours += 24.0;
  return hours * 3600.0;
}

TEST(GreenwichSiderealTime, MatchesPublishedReferenceValues) {
  // Published GMST for 1987 April 10: 0h UT gives 13h 10m 46.3668s, and
  // 19h 21m UT gives 8h 34m 57.0896s.
  EXPECT_NEAR(ToSeconds(GreenwichSiderealTime(At(1987, 4, 10), 0.0, 0)),
              13 * 3600 + 10 * 60 + 46.3668, 0.01);
  EXPECT_NEAR(ToSeconds(GreenwichSiderealTime(At(1987, 4, 10, 19, 21), 0.0, 0)),
              8 * 3600 + 34 * 60 + 57.0896, 0.01);
}

TEST(GreenwichSiderealTime, FollowsItsFormulaExactly) {
  EXPECT_NEAR(GreenwichSiderealTime(At(2000, 1, 1, 12), 0.0, 0), 4.8949612127332935, 1e-13);
  // Before J2000.0 the result is negative and stays unreduced.
  EXPECT_NEAR(GreenwichSiderealTime(At(1999, 12, 31, 12), 0.0, 0), -1.4054268862515957, 1e-13);
}

TEST(GreenwichSiderealTime, OffsetAndDaylightSavingShiftTheLocalClock) {
  const double utc = GreenwichSiderealTime(At(2000, 1, 1, 12), 0.0, 0);
  EXPECT_NEAR(GreenwichSiderealTime(At(2000, 1, 1, 13), 1.0, 0), utc, 1e-12);
  EXPECT_NEAR(GreenwichSiderealTime(At(2000, 1, 1, 13), 0.0, 1), utc, 1e-12);
  EXPECT_NEAR(GreenwichSiderealTime(At(2000, 1, 1, 14), 1.0, 1), utc, 1e-12);
  // Milliseconds count: one second of clock time is 1.0027... sidereal seconds.
  const double later = GreenwichSiderealTime(At(2000, 1, 1, 12, 0, 0, 500), 0.0, 0);
  EXPECT_NEAR((later - utc) * 12.0 / PI * 3600.0, 0.5 * 1.00273790935, 1e-9);
}

TEST(GreenwichSiderealTime, JanuaryAndFebruaryCountInThePreviousYear) {
  // Across the end of February the day number must step by exactly one day.
  const double feb28 = GreenwichSiderealTime(At(2001, 2, 28), 0.0, 0);
  const double mar1 = GreenwichSiderealTime(At(2001, 3, 1), 0.0, 0);
  const double oneDayOfSiderealHours = 24.06570982441908 - 24.0;
  EXPECT_NEAR(std::remainder((mar1 - feb28) * 12.0 / PI - oneDayOfSiderealHours, 24.0), 0.0, 1e-9);
  // Continuity across local midnight: 23:59:59.999 then 00:00:00.000.
  const double before = GreenwichSiderealTime(At(2010, 6, 30, 23, 59, 59, 999), 2.0, 0);
  const double after = GreenwichSiderealTime(At(2010, 7, 1), 2.0, 0);
  EXPECT_NEAR(std::remainder(after - before, 2 * PI), 0.001 * 1.00273790935 * PI / 43200.0, 1e-9);
}

TEST(GreenwichSiderealTime, OddInputGivesANumberWithoutLooping) {
  EXPECT_TRUE(std::isfinite(GreenwichSiderealTime(At(0, 0, 0), 0.0, 0)));
  EXPECT_TRUE(std::isfinite(GreenwichSiderealTime(At(65535, 65535, 65535, 65535, 65535, 65535, 65535), 0.0, 0)));
  EXPECT_TRUE(std::isnan(GreenwichSiderealTime(At(2000, 1, 1), std::nan(""), 0)));
}

}  // namespace
}  // namespace scopemount
