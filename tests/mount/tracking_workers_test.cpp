// The closed-form Alt/Az rates, without threads.
#include <gtest/gtest.h>

#include <cmath>

#include "mount/tracking_workers.h"
#include "support/angles.h"

namespace scopemount {
namespace {

TEST(AltAzClosedFormRates, FollowTheSkyAtTheEquatorAndThePole) {
  AxisRates rates = AltAzClosedFormRates(0.0, 0.0, 0.0);
  EXPECT_NEAR(rates.axis0, 0.0, 1e-20) << "north horizon at the equator stands still";
  EXPECT_NEAR(rates.axis1, 0.0, 1e-20);
  rates = AltAzClosedFormRates(90 * DEG, 0.0, 0.0);
  EXPECT_NEAR(rates.axis0, SIDEREAL_RATE, 1e-18) << "at the pole the sky turns in azimuth only";
  EXPECT_NEAR(rates.axis1, 0.0, 1e-20);
  // Due east at the equator a star rises straight up at the sidereal rate.
  rates = AltAzClosedFormRates(0.0, 90 * DEG, 0.0);
  EXPECT_NEAR(rates.axis0, 0.0, 1e-18);
  EXPECT_NEAR(rates.axis1, SIDEREAL_RATE, 1e-18);
}

}  // namespace
}  // namespace scopemount
