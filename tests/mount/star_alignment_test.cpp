// Two- and three-star alignment on the test mount's nominal geometries:
// recovering known pointing terms, and failures that keep the old model.
#include <gtest/gtest.h>

#include <cfenv>
#include <cmath>
#include <limits>

#include "mount/float_faults.h"
#include "mount/star_alignment.h"
#include "support/angles.h"
#include "support/test_mount.h"

namespace scopemount {
namespace {

using testing::Geometry;
using testing::TestMount;

// Where a mount with the model now in force sees each star.
StarObservation Observe(Mount& mount, AnglePair sky) {
  AnglePair reduced = sky;
  AnglePair axes;
  mount.SkyToAxes(&reduced, &axes, 1);
  return {sky, axes};
}

void ExpectSameMatrix(const Matrix3& a, const Matrix3& b, double tolerance) {
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) EXPECT_NEAR(a.at(i, j), b.at(i, j), tolerance) << i << j;
  }
}

void ExpectSameModel(const PointingSnapshot& a, const PointingSnapshot& b) {
  EXPECT_EQ(a.skyToAxes, b.skyToAxes);
  EXPECT_EQ(a.axesToSky, b.axesToSky);
  EXPECT_EQ(a.indexError, b.indexError);
  EXPECT_EQ(a.coneError, b.coneError);
  EXPECT_EQ(a.nonPerpError, b.nonPerpError);
}

class StarAlignment : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(altaz.SetSite(0.6, 0), Ok); }
  TestMount altaz{Geometry::AltAz, 7};
  // Three stars well spread in azimuth and altitude.
  const AnglePair s1{-1.2, 0.3};
  const AnglePair s2{0.9, 0.1};
  const AnglePair s3{0.2, 1.0};
};

TEST_F(StarAlignment, NominalMeasurementsGiveTheNominalModel) {
  const PointingSnapshot nominal = altaz.pointing.Load();
  const StarObservation o1 = Observe(altaz, s1), o2 = Observe(altaz, s2), o3 = Observe(altaz, s3);
  ASSERT_EQ(altaz.AlignTwoStars(o1, o2), Ok);
  PointingSnapshot fitted = altaz.pointing.Load();
  ExpectSameMatrix(fitted.skyToAxes, nominal.skyToAxes, 1e-12);
  ExpectSameMatrix(fitted.axesToSky, nominal.axesToSky, 1e-12);
  EXPECT_NEAR(fitted.indexError, 0.0, 1e-12);
  EXPECT_EQ(altaz.aligned, 1u);
  EXPECT_EQ(altaz.alignmentQuality, 100u);

  ASSERT_EQ(altaz.AlignThreeStars(o1, o2, o3), Ok);
  fitted = altaz.pointing.Load();
  ExpectSameMatrix(fitted.skyToAxes, nominal.skyToAxes, 1e-9);
  EXPECT_NEAR(fitted.indexError, 0.0, 1e-9);
  EXPECT_NEAR(fitted.coneError, 0.0, 1e-9);
}

TEST_F(StarAlignment, ThreeStarsRecoverIndexAndConeTerms) {
  altaz.pointing.Update([](PointingSnapshot& model) {
    model.indexError = 0.3 * DEG;
    model.coneError = 0.2 * DEG;
  });
  const StarObservation o1 = Observe(altaz, s1), o2 = Observe(altaz, s2), o3 = Observe(altaz, s3);
  ASSERT_EQ(altaz.ResetAlignment(0.0, 0.0), Ok);
  ASSERT_EQ(altaz.AlignThreeStars(o1, o2, o3), Ok);
  const PointingSnapshot fitted = altaz.pointing.Load();
  EXPECT_NEAR(fitted.indexError, 0.3 * DEG, ARCMIN);
  EXPECT_NEAR(fitted.coneError, 0.2 * DEG, ARCMIN);
  for (const StarObservation& o : {o1, o2, o3}) {
    const StarObservation seen = Observe(altaz, o.sky);
    EXPECT_LT(AngularSeparation(seen.axes.lon, seen.axes.lat, o.axes.lon, o.axes.lat), ARCMIN)
        << "the fitted model points at every star";
  }
}

TEST_F(StarAlignment, PureIndexOffsetSettlesWhenTheThirdStarSharesTheFirstsAzimuth) {
  // Star 3 two degrees of azimuth from star 1 and 30 degrees higher, so the
  // cone term is fitted on stars 2 and 3.
  AnglePair axes3 = Observe(altaz, s1).axes;
  axes3.lon += 2 * DEG;
  axes3.lat += 30 * DEG;
  AnglePair sky3;
  altaz.AxesToSky(&axes3, &sky3, 0);
  altaz.pointing.Update([](PointingSnapshot& model) { model.indexError = 0.5 * DEG; });
  const StarObservation o1 = Observe(altaz, s1), o2 = Observe(altaz, s2), o3 = Observe(altaz, sky3);
  ASSERT_LT(std::fabs(NormalizeAngle(o1.axes.lon - o3.axes.lon)), 5 * DEG);
  ASSERT_EQ(altaz.ResetAlignment(0.0, 0.0), Ok);
  ASSERT_EQ(altaz.AlignThreeStars(o1, o2, o3), Ok);
  const PointingSnapshot fitted = altaz.pointing.Load();
  EXPECT_NEAR(fitted.indexError, 0.5 * DEG, ARCMIN);
  EXPECT_NEAR(fitted.coneError, 0.0, ARCMIN);
}

TEST_F(StarAlignment, TwoStarsRecoverTheIndexTerm) {
  altaz.pointing.Update([](PointingSnapshot& model) { model.indexError = -0.4 * DEG; });
  const StarObservation o1 = Observe(altaz, s1), o2 = Observe(altaz, s2);
  ASSERT_EQ(altaz.ResetAlignment(0.0, 0.0), Ok);
  ASSERT_EQ(altaz.AlignTwoStars(o1, o2), Ok);
  EXPECT_NEAR(altaz.pointing.Load().indexError, -0.4 * DEG, 1e-9);
  const StarObservation seen = Observe(altaz, s2);
  EXPECT_LT(AngularSeparation(seen.axes.lon, seen.axes.lat, o2.axes.lon, o2.axes.lat), 1e-9);
}

TEST_F(StarAlignment, UnsolvableStarsFailAndKeepTheModelInForce) {
  const StarObservation o1 = Observe(altaz, s1), o2 = Observe(altaz, s2), o3 = Observe(altaz, s3);
  altaz.pointing.Update([](PointingSnapshot& model) { model.indexError = 0.2 * DEG; });
  ASSERT_EQ(altaz.AlignTwoStars(o1, o2), Ok);
  const PointingSnapshot inForce = altaz.pointing.Load();
  const double misalignment = altaz.misalignment;

  EXPECT_EQ(altaz.AlignTwoStars(o1, o1), AlignFailed) << "coincident stars";
  ExpectSameModel(altaz.pointing.Load(), inForce);

  // Catalogue 90 degrees apart, measured half a degree apart.
  const StarObservation near{s2, {o1.axes.lon + 0.5 * DEG, o1.axes.lat}};
  EXPECT_EQ(altaz.AlignTwoStars(o1, near), AlignFailed) << "separation cannot be matched";
  ExpectSameModel(altaz.pointing.Load(), inForce);

  const double nan = std::numeric_limits<double>::quiet_NaN();
  const StarObservation poisoned{{nan, 0.1}, o2.axes};
  EXPECT_EQ(altaz.AlignTwoStars(o1, poisoned), InvalidParameter);
  EXPECT_EQ(altaz.AlignThreeStars(o1, o2, poisoned), InvalidParameter);
  EXPECT_EQ(altaz.AlignOneStar(poisoned.sky, poisoned.axes), InvalidParameter);
  ExpectSameModel(altaz.pointing.Load(), inForce);
  EXPECT_EQ(altaz.aligned, 1u) << "a failed alignment keeps the earlier one";
  EXPECT_EQ(altaz.misalignment, misalignment);
  (void)o3;
}

TEST(StarAlignmentEquatorial, StarsOnOneMeridianOrOneGreatCircleFail) {
  TestMount equatorial(Geometry::Equatorial, 6);
  ASSERT_EQ(equatorial.SetSite(0.6, 0), Ok);
  const PointingSnapshot nominal = equatorial.pointing.Load();
  // The equatorial frame measures (hour angle, declination) itself.
  const StarObservation a{{0.3, 0.1}, {0.3, 0.1}};
  const StarObservation b{{0.3, 0.6}, {0.3, 0.6}};
  EXPECT_EQ(equatorial.AlignTwoStars(a, b), AlignFailed) << "same meridian";
  ExpectSameModel(equatorial.pointing.Load(), nominal);

  const StarObservation e1{{-0.5, 0.0}, {-0.5, 0.0}};
  const StarObservation e2{{0.3, 0.0}, {0.3, 0.0}};
  const StarObservation e3{{1.0, 0.0}, {1.0, 0.0}};
  EXPECT_EQ(equatorial.AlignThreeStars(e1, e2, e3), AlignFailed) << "all on the equator";
  ExpectSameModel(equatorial.pointing.Load(), nominal);
  EXPECT_EQ(equatorial.aligned, 0u);
}

TEST_F(StarAlignment, FaultRuleGivesTheCallerItsFlagsBack) {
  const StarObservation o1 = Observe(altaz, s1), o2 = Observe(altaz, s2);
  constexpr int faults = FE_DIVBYZERO | FE_OVERFLOW | FE_UNDERFLOW;
  std::feclearexcept(FE_ALL_EXCEPT);
  EXPECT_EQ(altaz.AlignTwoStars(o1, o1), AlignFailed);
  EXPECT_EQ(std::fetestexcept(faults), 0) << "the fault stays inside the alignment";
  std::feraiseexcept(FE_OVERFLOW);
  EXPECT_EQ(altaz.AlignTwoStars(o1, o2), Ok) << "an earlier flag is not a fault of this fit";
  EXPECT_EQ(std::fetestexcept(faults), FE_OVERFLOW) << "and the caller still has it";
  std::feclearexcept(FE_ALL_EXCEPT);
}

TEST(FaultWatch, CatchesFaultsByValueWhereNothingTraps) {
  {
    FaultWatch watch;
    watch.Check(1.0);
    watch.Check(-0.0);
    EXPECT_FALSE(watch.Faulted());
    watch.Check(std::numeric_limits<double>::denorm_min());
    EXPECT_TRUE(watch.Faulted()) << "a subnormal intermediate is an underflow";
  }
  for (double bad : {std::numeric_limits<double>::infinity(),
                     std::numeric_limits<double>::quiet_NaN()}) {
    FaultWatch watch;
    Matrix3 m;
    m.at(2, 1) = bad;
    watch.Check(m);
    EXPECT_TRUE(watch.Faulted()) << bad;
  }
}

TEST(PointingFits, NoSolutionLeavesTheEstimateAlone) {
  const PointingSnapshot terms;
  const StarObservation a{{0.0, 0.0}, {0.0, 0.0}};
  const StarObservation b{{PI / 2, 0.0}, {0.01, 0.0}};  // 90 degrees apart, seen 0.01 apart
  double index = 0.123;
  EXPECT_FALSE(FitIndexError(terms, a, b, &index));
  EXPECT_EQ(index, 0.123);
  double cone = 0.456;
  EXPECT_FALSE(FitConeError(terms, a, a, &cone)) << "equal altitudes leave the cone term open";
  EXPECT_EQ(cone, 0.456);
}

}  // namespace
}  // namespace scopemount
