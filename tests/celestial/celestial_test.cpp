// Angles, matrices and sidereal time, against values worked out by hand or
// published.
#include <gtest/gtest.h>

#include <cmath>
#include <initializer_list>
#include <limits>

#include "celestial/angles.h"
#include "celestial/matrix3.h"
#include "celestial/sidereal_time.h"
#include "support/angles.h"

namespace scopemount {
namespace {

constexpr double Inf = std::numeric_limits<double>::infinity();

TEST(Angles, NormalizeSeparationAndConstants) {
  EXPECT_EQ(PI, 3.141592653589793);
  EXPECT_EQ(SIDEREAL_RATE, 7.292115845221407e-05);
  EXPECT_EQ(NormalizeAngle(PI), PI) << "the closed interval keeps pi";
  EXPECT_EQ(NormalizeAngle(-PI), -PI);
  EXPECT_NEAR(NormalizeAngle(3 * PI / 2), -PI / 2, 1e-15);
  EXPECT_DOUBLE_EQ(NormalizeAngle(-7.0), -7.0 + 2 * PI);
  EXPECT_EQ(NormalizeAngle(2 * PI), 0.0);
  EXPECT_DOUBLE_EQ(NormalizeAngle(1e6), std::remainder(1e6, 2 * PI));
  for (double bad : {Inf, -Inf, std::nan("")}) {
    EXPECT_TRUE(std::isnan(NormalizeAngle(bad))) << "at once, no endless reduction: " << bad;
  }
  EXPECT_EQ(AngularSeparation(0.3, 0.4, 0.3, 0.4), 0.0) << "same position must not be NaN";
  EXPECT_NEAR(AngularSeparation(0.0, 0.0, PI, 0.0), PI, 1e-12) << "antipodes";
  EXPECT_NEAR(AngularSeparation(0.0, 0.0, PI / 2, 0.0), PI / 2, 1e-15);
  EXPECT_NEAR(AngularSeparation(0.0, PI / 2, 0.0, -PI / 2), PI, 1e-12) << "the two poles";
  for (double lat : {-1.2, -0.3, 0.0, 0.7, 1.5}) {
    EXPECT_FALSE(std::isnan(AngularSeparation(0.1, lat, 0.1 + 1e-17, lat))) << "clipped " << lat;
  }
}

Matrix3 Rows(std::initializer_list<std::initializer_list<double>> rows) {
  Matrix3 m(0.0);
  int i = 0;
  for (const auto& row : rows) {
    int j = 0;
    for (double v : row) m.at(i, j++) = v;
    ++i;
  }
  return m;
}

TEST(Matrix3, InvertSucceedsOrLeavesTheMatrixAlone) {
  // Pivots found only by a row swap, in the first column and in the second.
  for (const Matrix3& swap : {Rows({{0, 1, 0}, {1, 0, 0}, {0, 0, 1}}),
                              Rows({{1, 0, 0}, {0, 0, 1}, {0, 1, 0}})}) {
    Matrix3 inverse = swap;
    EXPECT_EQ(inverse.Invert(), 0) << "the pivot search must swap rows";
    EXPECT_EQ(inverse, swap) << "a swap of two rows is its own inverse";
  }
  const Matrix3 zeroRow = Rows({{1, 2, 3}, {0, 0, 0}, {4, 5, 6}});
  Matrix3 m = zeroRow;
  EXPECT_EQ(m.Invert(), 1);
  EXPECT_EQ(m, zeroRow) << "a singular matrix keeps its value";
  Matrix3 tiny = Rows({{1e-6, 0, 0}, {0, 1, 0}, {0, 0, 1}});
  EXPECT_EQ(tiny.Invert(), 1) << "1e-6 is not above the pivot threshold";
  Matrix3 small = Rows({{2e-6, 0, 0}, {0, 1, 0}, {0, 0, 1}});
  EXPECT_EQ(small.Invert(), 0);
  EXPECT_NEAR(small.at(0, 0), 500000.0, 1e-6);
  const Matrix3 general = Rows({{2, -1, 0.5}, {1, 3, -2}, {0.3, 0.7, 4}});
  Matrix3 inverse = general;
  ASSERT_EQ(inverse.Invert(), 0);
  inverse.MultiplyInPlace(general);
  ExpectMatrixNear(inverse, Matrix3(1.0), 1e-14, "inverse x matrix");
}

TEST(Directions, UnitVectorsAndFolding) {
  const Vector3 y = SphericalToUnitVector({PI / 2, 0});
  EXPECT_NEAR(y.x, 0.0, 1e-16);
  EXPECT_NEAR(y.y, 1.0, 1e-16);
  EXPECT_NEAR(SphericalToUnitVector({2.5, PI / 2}).z, 1.0, 1e-16);
  Vector3 up{0, 0, 2};
  const AnglePair upAngles = UnitVectorToSpherical(up);
  EXPECT_EQ(up.z, 1.0) << "the caller's vector is left normalised";
  EXPECT_EQ(upAngles.lon, 0.0);
  EXPECT_EQ(upAngles.lat, PI / 2);
  Vector3 back{-1, 0, 0}, backNegativeZero{-1, -0.0, 0};
  EXPECT_EQ(UnitVectorToSpherical(back).lon, PI);
  EXPECT_EQ(UnitVectorToSpherical(backNegativeZero).lon, -PI) << "the sign of a zero y decides";
  const AnglePair folded = TransformDirection(Matrix3(1.0), {0.5, 2.0});
  EXPECT_NEAR(folded.lon, 0.5 - PI, 1e-15) << "past the pole";
  EXPECT_NEAR(folded.lat, PI - 2.0, 1e-15);
}

SYSTEMTIME At(uint16_t year, uint16_t month, uint16_t day, uint16_t hour = 0, uint16_t minute = 0,
              uint16_t second = 0, uint16_t ms = 0) {
  return SYSTEMTIME{year, month, 6 /* day of week, never read */, day, hour, minute, second, ms};
}

// Seconds of sidereal time in [0, 24 h).
double ToSeconds(double radians) {
  const double hours = std::fmod(radians * 12.0 / PI, 24.0);
  return (hours < 0 ? hours + 24.0 : hours) * 3600.0;
}

constexpr double SIDEREAL_PER_SOLAR = 1.00273790935;

TEST(GreenwichSiderealTime, PublishedValuesAndTheClockRules) {
  // Published GMST for 1987 April 10: 0h UT gives 13h 10m 46.3668s, and
  // 19h 21m UT gives 8h 34m 57.0896s.
  EXPECT_NEAR(ToSeconds(GreenwichSiderealTime(At(1987, 4, 10), 0.0, 0)), 47446.3668, 0.01);
  EXPECT_NEAR(ToSeconds(GreenwichSiderealTime(At(1987, 4, 10, 19, 21), 0.0, 0)), 30897.0896, 0.01);
  const double utc = GreenwichSiderealTime(At(2000, 1, 1, 12), 0.0, 0);
  EXPECT_NEAR(utc, 4.8949612127332935, 1e-13);
  EXPECT_NEAR(GreenwichSiderealTime(At(1999, 12, 31, 12), 0.0, 0), -1.4054268862515957, 1e-13)
      << "before J2000.0 the result is negative and unreduced";
  EXPECT_NEAR(GreenwichSiderealTime(At(2000, 1, 1, 13), 1.0, 0), utc, 1e-12) << "zone offset";
  EXPECT_NEAR(GreenwichSiderealTime(At(2000, 1, 1, 13), 0.0, 1), utc, 1e-12) << "daylight saving";
  EXPECT_NEAR(GreenwichSiderealTime(At(2000, 1, 1, 14), 1.0, 1), utc, 1e-12);
  const double later = GreenwichSiderealTime(At(2000, 1, 1, 12, 0, 0, 500), 0.0, 0);
  EXPECT_NEAR((later - utc) * 12.0 / PI * 3600.0, 0.5 * SIDEREAL_PER_SOLAR, 1e-9) << "milliseconds";
  // January and February count in the previous year: one day across March 1.
  const double feb28 = GreenwichSiderealTime(At(2001, 2, 28), 0.0, 0);
  const double mar1 = GreenwichSiderealTime(At(2001, 3, 1), 0.0, 0);
  EXPECT_NEAR(std::remainder((mar1 - feb28) * 12.0 / PI - 0.06570982441908, 24.0), 0.0, 1e-9);
  const double before = GreenwichSiderealTime(At(2010, 6, 30, 23, 59, 59, 999), 2.0, 0);
  const double after = GreenwichSiderealTime(At(2010, 7, 1), 2.0, 0);
  EXPECT_NEAR(std::remainder(after - before, 2 * PI), 0.001 * SIDEREAL_PER_SOLAR * PI / 43200.0,
              1e-9)
      << "continuous across local midnight";
  EXPECT_TRUE(std::isfinite(GreenwichSiderealTime(At(0, 0, 0), 0.0, 0)));
  EXPECT_TRUE(std::isfinite(
      GreenwichSiderealTime(At(65535, 65535, 65535, 65535, 65535, 65535, 65535), 0.0, 0)));
  EXPECT_TRUE(std::isnan(GreenwichSiderealTime(At(2000, 1, 1), std::nan(""), 0)));
}

}  // namespace
}  // namespace scopemount
