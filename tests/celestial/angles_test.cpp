#include "celestial/angles.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace scopemount {
namespace {

TEST(NormalizeAngle, ReducesIntoClosedHalfTurnInterval) {
  EXPECT_EQ(NormalizeAngle(PI), PI) << "pi stays pi";
  EXPECT_EQ(NormalizeAngle(-PI), -PI) << "-pi stays -pi";
  EXPECT_NEAR(NormalizeAngle(3 * PI / 2), -PI / 2, 1e-15);
  EXPECT_DOUBLE_EQ(NormalizeAngle(-7.0), -7.0 + 2 * PI);
  EXPECT_EQ(NormalizeAngle(2 * PI), 0.0);
  EXPECT_DOUBLE_EQ(NormalizeAngle(7.0), 7.0 - 2 * PI);
  EXPECT_DOUBLE_EQ(NormalizeAngle(1e6), std::remainder(1e6, 2 * PI));
}

TEST(NormalizeAngle, NonFiniteGivesNaNAtOnce) {
  // A reduction that loops on 2 pi would never end on infinity.
  EXPECT_TRUE(std::isnan(NormalizeAngle(std::numeric_limits<double>::infinity())));
  EXPECT_TRUE(std::isnan(NormalizeAngle(-std::numeric_limits<double>::infinity())));
  EXPECT_TRUE(std::isnan(NormalizeAngle(std::numeric_limits<double>::quiet_NaN())));
}

TEST(Constants, SiderealRateAndPiHaveTheirExactValues) {
  EXPECT_EQ(PI, 3.141592653589793);
  EXPECT_EQ(SIDEREAL_RATE, 7.292115845221407e-05);
}

TEST(AngularSeparation, KnownGeometries) {
  EXPECT_EQ(AngularSeparation(0.3, 0.4, 0.3, 0.4), 0.0) << "same position must not be NaN";
  EXPECT_NEAR(AngularSeparation(0.0, 0.0, PI, 0.0), PI, 1e-12) << "antipodes";
  EXPECT_NEAR(AngularSeparation(0.0, 0.0, PI / 2, 0.0), PI / 2, 1e-15);
  EXPECT_NEAR(AngularSeparation(0.0, PI / 2, 0.0, -PI / 2), PI, 1e-12) << "the two poles";
  EXPECT_NEAR(AngularSeparation(1.0, 0.5, 2.0, 0.5), AngularSeparation(2.0, 0.5, 1.0, 0.5), 1e-15);
  // Clipping keeps nearly identical positions from producing NaN.
  for (double lat : {-1.2, -0.3, 0.0, 0.7, 1.5}) {
    EXPECT_FALSE(std::isnan(AngularSeparation(0.1, lat, 0.1 + 1e-17, lat))) << lat;
  }
}

}  // namespace
}  // namespace scopemount
