// Star alignment on the test mount: what a failure leaves behind, and the
// stars refused before anything changes. The fits themselves are checked
// on askew simulators with the geometry layers.
#include "mount/star_alignment.h"

#include <gtest/gtest.h>

#include <cfenv>
#include <cmath>
#include <limits>
#include <optional>
#include <vector>

#include "mount/float_faults.h"
#include "support/angles.h"
#include "support/test_mount.h"

namespace scopemount {
namespace {

using namespace testing;

// Two stars well spread in azimuth and altitude.
constexpr AnglePair S1{-1.2, 0.3}, S2{0.9, 0.1};

// The star halfway between two others on their great circle: with them, a
// singular catalogue matrix.
AnglePair Between(AnglePair a, AnglePair b) {
  const Vector3 u = SphericalToUnitVector(a), v = SphericalToUnitVector(b);
  Vector3 sum{u.x + v.x, u.y + v.y, u.z + v.z};
  return UnitVectorToSpherical(sum);
}

// `a` turned by `angle` about the direction of `pole`: as far from it as before.
AnglePair TurnedAbout(AnglePair a, AnglePair pole, double angle) {
  const Vector3 v = SphericalToUnitVector(a), u = SphericalToUnitVector(pole);
  const Vector3 cross{u.y * v.z - u.z * v.y, u.z * v.x - u.x * v.z, u.x * v.y - u.y * v.x};
  const double along = (u.x * v.x + u.y * v.y + u.z * v.z) * (1.0 - std::cos(angle));
  const double c = std::cos(angle), s = std::sin(angle);
  Vector3 turned{v.x * c + cross.x * s + u.x * along, v.y * c + cross.y * s + u.y * along,
                 v.z * c + cross.z * s + u.z * along};
  return UnitVectorToSpherical(turned);
}

// Three axis directions on one great circle, seen for three stars that are
// not: the fits find no error, and the axis matrix is singular. Star 3 is
// the third star turned about the first, so the pairs the fits use (1-2,
// 1-3) keep their measured separations.
std::vector<StarObservation> CoplanarAxes(Mount& m) {
  const auto onCircle = [](double t) {
    Vector3 v{std::cos(t), std::sin(t) * std::cos(0.87), std::sin(t) * std::sin(0.87)};
    return UnitVectorToSpherical(v);
  };
  const AnglePair axes[3] = {onCircle(-1.2), onCircle(0.9), onCircle(-1.0)};
  AnglePair sky[3];
  for (int i = 0; i < 3; ++i) {
    AnglePair a = axes[i];
    m.AxesToSky(&a, &sky[i], 0);
  }
  sky[2] = TurnedAbout(sky[2], sky[0], 0.7);
  return {{sky[0], axes[0]}, {sky[1], axes[1]}, {sky[2], axes[2]}};
}

// What a failed alignment leaves: the nominal matrices (except a new
// sky-to-axes matrix when only the axis matrix is singular), the pointing
// terms written before the step that failed (nullopt: the earlier term),
// and the earlier `aligned`, `alignmentQuality` and `misalignment`.
TEST(StarAlignmentFailure, LeavesTheNominalMatricesAndTheTermsFittedSoFar) {
  constexpr double EARLIER_INDEX = 0.2 * DEG, EARLIER_CONE = 0.1 * DEG;
  using Stars = std::vector<StarObservation> (*)(Mount&);
  struct Case {
    const char* name;
    double trueIndex, trueCone;  // the terms the observations are made with
    Stars stars;
    std::optional<double> index, cone;
    double tolerance;
    uint32_t alignedBefore;
    bool newSkyToAxes = false;
    Geometry geometry = Geometry::AltAz;
  };
  const Case cases[] = {
      {"two stars 90 degrees apart seen half a degree apart", 0, 0,
       [](Mount& m) {
         const StarObservation o1 = Observe(m, S1);
         return std::vector{o1, StarObservation{S2, {o1.axes.lon + 0.5 * DEG, o1.axes.lat}}};
       },
       std::nullopt, std::nullopt, 0, 1},
      {"the same star twice: a division by zero", 0, 0,
       [](Mount& m) {
         return std::vector{Observe(m, S1), Observe(m, S1)};
       },
       std::nullopt, std::nullopt, 0, 0},
      {"a subnormal declination: an underflow", 0, 0,
       [](Mount& m) {
         StarObservation o1 = Observe(m, S1);
         o1.sky.lat = std::numeric_limits<double>::denorm_min();
         return std::vector{o1, Observe(m, S2)};
       },
       std::nullopt, std::nullopt, 0, 1},
      {"three stars: the cone fit divides by zero in the first round", 0.3 * DEG, 0,
       [](Mount& m) {
         // Star 3 at star 1's altitude and next to star 2 in azimuth, so
         // star 1 is its cone partner and the secants cancel.
         const StarObservation o1 = Observe(m, S1), o2 = Observe(m, S2);
         AnglePair axes3{o2.axes.lon + 2 * DEG, o1.axes.lat}, sky3;
         m.AxesToSky(&axes3, &sky3, 1);
         return std::vector{o1, o2, Observe(m, sky3)};
       },
       0.3 * DEG, 0.0, 1e-9, 1},
      {"three stars on one great circle: a singular star matrix", 0.3 * DEG, 0.2 * DEG,
       [](Mount& m) {
         return std::vector{Observe(m, S1), Observe(m, S2), Observe(m, Between(S1, S2))};
       },
       0.3 * DEG, 0.2 * DEG, ARCMIN, 0},
      {"three axis directions on one great circle: a singular axis matrix", 0, 0, CoplanarAxes, 0.0,
       0.0, 1e-9, 1, true},
      // The equatorial frame measures (hour angle, declination) itself.
      {"equatorial, three stars on the equator", 0, 0,
       [](Mount& m) {
         return std::vector{Observe(m, {-1.5, 0.0}), Observe(m, {-0.3, 0.0}),
                            Observe(m, {-1.0, 0.0})};
       },
       0.0, 0.0, 1e-6, 1, false, Geometry::Equatorial},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    TestMount mount(c.geometry);
    ASSERT_EQ(mount.SetSite(0.6, 0), Ok);
    const PointingSnapshot nominal = mount.pointing.Load();
    mount.pointing.Update([&](PointingSnapshot& model) {
      model.indexError = c.trueIndex;
      model.coneError = c.trueCone;
    });
    const std::vector<StarObservation> stars = c.stars(mount);
    // An earlier model that is not the nominal one.
    Matrix3 turned(1.0);
    turned.at(0, 0) = turned.at(1, 1) = std::cos(0.1);
    turned.at(0, 1) = -(turned.at(1, 0) = std::sin(0.1));
    mount.pointing.Update([&](PointingSnapshot& model) {
      model.skyToAxes = turned;
      model.axesToSky = turned;
      model.indexError = EARLIER_INDEX;
      model.coneError = EARLIER_CONE;
    });
    mount.aligned = c.alignedBefore;
    mount.alignmentQuality = 100 * c.alignedBefore;
    mount.misalignment = 0.01;

    const int32_t result = stars.size() == 2 ? mount.AlignTwoStars(stars[0], stars[1])
                                             : mount.AlignThreeStars(stars[0], stars[1], stars[2]);
    EXPECT_EQ(result, AlignFailed);
    const PointingSnapshot left = mount.pointing.Load();
    ExpectMatrixNear(left.axesToSky, nominal.axesToSky, 1e-15);
    if (!c.newSkyToAxes) {
      ExpectMatrixNear(left.skyToAxes, nominal.skyToAxes, 1e-15);
    } else {
      for (const StarObservation& star : stars) {
        const AnglePair seen = TransformDirection(left.skyToAxes, star.sky);
        EXPECT_LT(Separation(seen, star.axes), 1e-6)
            << "the new sky-to-axes matrix maps each star where it was seen";
      }
    }
    EXPECT_NEAR(left.indexError, c.index.value_or(EARLIER_INDEX), c.tolerance);
    EXPECT_NEAR(left.coneError, c.cone.value_or(EARLIER_CONE), c.tolerance);
    EXPECT_EQ(mount.aligned, c.alignedBefore);
    EXPECT_EQ(mount.alignmentQuality, 100 * c.alignedBefore);
    EXPECT_EQ(mount.misalignment, 0.01);
  }
}

TEST(StarAlignment, StarsThatAreNotFiniteAreRefusedBeforeAnythingChanges) {
  TestMount altaz(Geometry::AltAz, 7);
  const StarObservation o1 = Observe(altaz, S1), o2 = Observe(altaz, S2);
  altaz.pointing.Update([](PointingSnapshot& model) {
    model.skyToAxes.at(0, 1) = 0.5;
    model.indexError = 0.2 * DEG;
  });
  const PointingSnapshot before = altaz.pointing.Load();
  const StarObservation poisoned{{std::numeric_limits<double>::quiet_NaN(), 0.1}, o2.axes};
  EXPECT_EQ(altaz.AlignTwoStars(o1, poisoned), InvalidParameter);
  EXPECT_EQ(altaz.AlignThreeStars(o1, o2, poisoned), InvalidParameter);
  EXPECT_EQ(altaz.AlignOneStar(poisoned.sky, poisoned.axes), InvalidParameter);
  const PointingSnapshot after = altaz.pointing.Load();
  EXPECT_EQ(after.skyToAxes, before.skyToAxes);
  EXPECT_EQ(after.axesToSky, before.axesToSky);
  EXPECT_EQ(after.indexError, before.indexError);
  EXPECT_EQ(after.coneError, before.coneError);
}

TEST(StarAlignment, FaultRuleGivesTheCallerItsFlagsBack) {
  TestMount altaz(Geometry::AltAz, 7);
  const StarObservation o1 = Observe(altaz, S1), o2 = Observe(altaz, S2);
  constexpr int faults = FE_DIVBYZERO | FE_OVERFLOW | FE_UNDERFLOW;
  std::feclearexcept(FE_ALL_EXCEPT);
  EXPECT_EQ(altaz.AlignTwoStars(o1, o1), AlignFailed);
  EXPECT_EQ(std::fetestexcept(faults), 0) << "the fault stays inside the alignment";
  std::feraiseexcept(FE_OVERFLOW);
  EXPECT_EQ(altaz.AlignTwoStars(o1, o2), Ok) << "an earlier flag is not a fault of this fit";
  EXPECT_EQ(std::fetestexcept(faults), FE_OVERFLOW) << "and the caller still has it";
  std::feclearexcept(FE_ALL_EXCEPT);
}

// Where nothing traps (soft-float builds) faults are caught by value.
TEST(FaultWatch, CatchesFaultsByValueWhereNothingTraps) {
  for (double value :
       {1.0, -0.0, std::numeric_limits<double>::denorm_min(),
        std::numeric_limits<double>::infinity(), std::numeric_limits<double>::quiet_NaN()}) {
    FaultWatch watch;
    Matrix3 m;
    m.at(2, 1) = value;
    watch.Check(m);
    EXPECT_EQ(watch.Faulted(), !std::isnormal(value) && value != 0.0) << value;
  }
}

}  // namespace
}  // namespace scopemount
