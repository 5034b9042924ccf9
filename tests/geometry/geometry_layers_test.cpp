// The two geometry layers on the simulators, with no thread started:
// nominal matrices, the side-of-pier rule, star scores, and what a two- or
// three-star alignment measures on a mount built askew.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "celestial/angles.h"
#include "geometry/askew_model.h"
#include "support/angles.h"

namespace scopemount {
namespace {

using testing::AxesOf;
using testing::Observe;
using testing::Rotation;
using testing::Simulator;

constexpr int32_t ALTAZ = SCOPE_MODEL_ALTAZ_SIMULATOR;
constexpr int32_t EQUATORIAL = SCOPE_MODEL_EQUATORIAL_SIMULATOR;
// Separations come from an arc cosine: near 0 it resolves about 1.5e-8.
constexpr double ROUND_TRIP = 1e-7;

// The sky position at (azimuth from north toward east, altitude).
AnglePair AtHorizontal(Mount& mount, double azimuth, double altitude) {
  const double fromSouth = azimuth >= 0.0 ? azimuth - PI : azimuth + PI;
  return mount.HorizontalToEquatorial({fromSouth, altitude});
}

// Azimuth from north toward east, altitude; the conversions themselves are
// exercised by the alignment fits and the simulators' GOTOs.
TEST(AltAzGeometry, NominalAxesAreAzimuthAndAltitudeInBothHemispheres) {
  for (double latitude : {0.6, -0.6}) {
    auto mount = Simulator(ALTAZ, latitude);
    const AnglePair east = AxesOf(*mount, {-6 * HOUR, 0.0});
    EXPECT_NEAR(east.lon, HALF_PI, 1e-9) << "the equator rises due east at latitude " << latitude;
    EXPECT_NEAR(east.lat, 0.0, 1e-9) << latitude;
    EXPECT_NEAR(AxesOf(*mount, {0.0, latitude}).lat, HALF_PI, 1e-9) << "the zenith";
    const AnglePair meridian = AxesOf(*mount, {0.0, 0.0});
    EXPECT_NEAR(std::fabs(meridian.lon), latitude > 0 ? PI : 0.0, 1e-9)
        << "the equator culminates due south of a northern site, due north of a southern one";
    EXPECT_NEAR(meridian.lat, HALF_PI - std::fabs(latitude), 1e-9) << latitude;
  }
  auto north = Simulator(ALTAZ, 0.6);
  EXPECT_EQ(north->GotoAxes(NAN, 0.0), InvalidParameter);
  EXPECT_EQ(north->axisRunFlag[0], 0u) << "a refused target claims nothing";
}

TEST(EquatorialGeometry, SidesOfThePierInBothHemispheres) {
  const double dec = 40 * DEG;
  const struct {
    const char* name;
    double latitude;
    AnglePair sky, axes;
  } cases[] = {
      {"north, east of the meridian", 0.6, {-HOUR, dec}, {-HOUR, dec}},
      {"north, west: mirrored beyond the pole", 0.6, {HOUR, dec}, {PI + HOUR - TWO_PI, PI - dec}},
      {"north, on the meridian: never mirrored", 0.6, {0.0, dec}, {0.0, dec}},
      {"north, west, south of the equator: above pi", 0.6, {HOUR, -30 * DEG},
       {PI + HOUR - TWO_PI, PI + 30 * DEG}},
      {"south, west: (-hour angle, -declination)", -0.6, {HOUR, -dec}, {-HOUR, dec}},
      {"south, east: mirrored", -0.6, {-HOUR, -dec}, {PI + HOUR - TWO_PI, PI - dec}},
  };
  for (const auto& c : cases) {
    auto mount = Simulator(EQUATORIAL, c.latitude);
    const AnglePair axes = AxesOf(*mount, c.sky);
    EXPECT_NEAR(axes.lon, c.axes.lon, 1e-12) << c.name;
    EXPECT_NEAR(axes.lat, c.axes.lat, 1e-12) << c.name;
  }
}

TEST(AltAzGeometry, StarScores) {
  auto mount = Simulator(ALTAZ, 0.6);
  const auto at = [&](double azimuthDeg, double altitudeDeg) {
    return AtHorizontal(*mount, azimuthDeg * DEG, altitudeDeg * DEG);
  };
  EXPECT_EQ(mount->RateAlignmentStar(at(57, 59.99)), 5);
  EXPECT_EQ(mount->RateAlignmentStar(at(57, 60.01)), 0) << "60 degrees up is too high";
  EXPECT_EQ(mount->RateAlignmentStar(at(57, 14.9)), 0) << "below the default lower limit";
  EXPECT_EQ(mount->RateSecondStar(at(-170, 30), at(170, 30), 1), 5)
      << "azimuths -170 and 170 differ by 340 degrees unreduced";
  EXPECT_EQ(mount->RateSecondStar(at(-170, 30), at(-130, 30), 1), 0) << "40 degrees of azimuth";
  // The second star's secant sets the grade against 1/cos(20) = 1.064.
  const struct {
    double altitude;
    int32_t grade;
  } secants[] = {{25, 5}, {35, 4}, {45, 3}, {55, 2}, {59, 0}};
  for (const auto& c : secants) {
    EXPECT_EQ(mount->RateSecondStar(at(0, 20), at(90, c.altitude), 2), c.grade) << c.altitude;
    EXPECT_EQ(mount->RateSecondStar(at(0, 20), at(90, c.altitude), 0), 5) << "other methods";
  }
  // Third star: both pairs have leverage |1/cos 58 - 1/cos 20| = 0.82: grade 3.
  const AnglePair c = at(0, 58), a = at(120, 20), b = at(-120, 20);
  EXPECT_EQ(mount->RateThirdStar(a, b, c), 3);
  // Equal values (0.62, grade 2) grade the (first, third) pair and want the
  // second star more than 45 degrees from the third.
  EXPECT_EQ(mount->RateThirdStar(at(120, 38), at(-25, 38), c), 0);
  EXPECT_EQ(mount->RateThirdStar(at(-25, 38), at(120, 38), c), 2);
  EXPECT_EQ(mount->RateThirdStar(a, at(10, 20), c), 0) << "second pair too close in azimuth";
  EXPECT_EQ(mount->RateThirdStar(a, b, at(0, 65)), 0) << "a high third star";
  ASSERT_EQ(mount->SetAltitudeLimits(0.6, 1.2), Ok);
  EXPECT_EQ(mount->RateAlignmentStar(at(57, 30)), 0) << "below a raised lower limit";
}

TEST(EquatorialGeometry, StarScores) {
  auto mount = Simulator(EQUATORIAL, 0.6);
  const auto at = [](double hours, double decDeg) { return AnglePair{hours * HOUR, decDeg * DEG}; };
  EXPECT_EQ(mount->RateAlignmentStar(at(-1, 74.9)), 5);
  EXPECT_EQ(mount->RateAlignmentStar(at(-1, 75)), 0) << "too near the pole";
  EXPECT_EQ(mount->RateAlignmentStar(at(-1, -40)), 0) << "below the horizon";
  const AnglePair east = at(-2, 20), east2 = at(-4, 30);
  EXPECT_EQ(mount->RateSecondStar(east, at(2, 30), 1), 5) << "across the meridian";
  EXPECT_EQ(mount->RateSecondStar(east, at(2, 30), 2), 0) << "but not for method 2";
  EXPECT_EQ(mount->RateSecondStar(east, east2, 2), 5) << "secants 1.064 and 1.155";
  EXPECT_EQ(mount->RateSecondStar(east, at(-2.5, 30), 1), 0) << "7.5 degrees of hour angle";
  EXPECT_EQ(mount->RateSecondStar(at(-2, 5), at(-4, 5), 1), 0) << "declinations under 15";
  EXPECT_EQ(mount->RateSecondStar(east, at(-4, 60), 2), 0) << "secants 1.064 and 2.0";
  const AnglePair third = at(2, 60);
  EXPECT_EQ(mount->RateThirdStar(east, east2, at(-3, 60)), 0) << "first and third on one side";
  // Leverage |1/cos(pi + 60) - 1/cos 20| = 3.06: grade 3.
  EXPECT_EQ(mount->RateThirdStar(east, east2, third), 3);
  EXPECT_EQ(mount->RateThirdStar(east, at(2.5, 30), third), 0)
      << "the second star's hour angle nearly the third's ends the evaluation";
}

// A mount built askew is aligned on stars seen through it: the alignment
// measures the axis error, fits the terms, and then converts as it sees.
TEST(GeometryAlignment, MeasuresTheAxisErrorAndFitsTheTerms) {
  struct Case {
    const char* name;
    int32_t model;
    double latitude;
    Matrix3 skew;
    double index, cone;
    double misalignment;  // the tilt of the axis pole; NaN: not checked
    // Alt/Az: (azimuth, altitude); equatorial: (hours, declination); degrees.
    std::vector<AnglePair> stars;
    double tolerance;
  };
  const Case cases[] = {
      {"Alt/Az two stars, tilted azimuth axis", ALTAZ, 0.6, Rotation(0, 0.5 * DEG), 0, 0, 0.5 * DEG,
       {{40, 30}, {-80, 45}}, ARCSEC},
      {"Alt/Az two stars in the south", ALTAZ, -0.6, Rotation(0, 0.5 * DEG), 0, 0, 0.5 * DEG,
       {{40, 30}, {-80, 45}}, ARCSEC},
      {"Alt/Az two stars with an index error", ALTAZ, 0.6, Matrix3(1.0), -0.4 * DEG, 0, NAN,
       {{40, 30}, {-80, 45}}, ROUND_TRIP},
      {"Alt/Az three stars, nominal", ALTAZ, 0.6, Matrix3(1.0), 0, 0, 0.0,
       {{40, 15}, {-80, 30}, {160, 55}}, ROUND_TRIP},
      {"Alt/Az three stars with index and cone", ALTAZ, 0.6, Rotation(1, 0.3 * DEG), 0.3 * DEG,
       0.2 * DEG, 0.3 * DEG, {{40, 15}, {-80, 30}, {160, 55}}, 60 * ARCSEC},
      {"Alt/Az third star at the first's azimuth: the cone is fitted on stars 2 and 3", ALTAZ,
       0.6, Matrix3(1.0), 0.5 * DEG, 0, NAN, {{40, 30}, {-80, 45}, {42, 60}}, ARCMIN},
      {"equatorial two stars across the meridian", EQUATORIAL, 0.6, Rotation(1, 0.4 * DEG), 0, 0,
       0.4 * DEG, {{-2, 20}, {1.5, 50}}, ARCSEC},
      {"equatorial two stars in the south", EQUATORIAL, -0.6, Rotation(1, 0.4 * DEG), 0, 0,
       0.4 * DEG, {{-2, -20}, {1.5, -50}}, ARCSEC},
      {"equatorial three stars with index and cone", EQUATORIAL, 0.6, Rotation(2, 1.0 * DEG),
       0.3 * DEG, 0.2 * DEG, NAN, {{-1, 10}, {-4, 60}, {2, 40}}, 60 * ARCSEC},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    auto truth = Simulator(c.model, c.latitude, c.skew, c.index, c.cone);
    auto mount = Simulator(c.model, c.latitude);
    EXPECT_NEAR(mount->GetAxisMisalignment(), 0.0, 1e-7) << "nominal: no axis error";
    const auto sky = [&](AnglePair star) {
      if (c.model == ALTAZ) return AtHorizontal(*mount, star.lon * DEG, star.lat * DEG);
      return AnglePair{star.lon * HOUR, star.lat * DEG};
    };
    std::vector<StarObservation> seen;
    for (AnglePair star : c.stars) seen.push_back(Observe(*truth, sky(star)));
    // Angles with extra turns are reduced.
    seen[0].sky.lon += 2 * TWO_PI;
    seen[0].axes.lon -= TWO_PI;
    seen[1].axes.lat += TWO_PI;
    const int32_t result = seen.size() == 2 ? mount->AlignTwoStars(seen[0], seen[1])
                                            : mount->AlignThreeStars(seen[0], seen[1], seen[2]);
    ASSERT_EQ(result, Ok);
    EXPECT_EQ(mount->aligned, 1u);
    EXPECT_EQ(mount->alignmentQuality, 100u);
    if (!std::isnan(c.misalignment)) {
      EXPECT_NEAR(mount->misalignment, c.misalignment, c.tolerance);
    }
    EXPECT_NEAR(mount->pointing.Load().indexError, c.index, c.tolerance);
    EXPECT_NEAR(mount->pointing.Load().coneError, c.cone, c.tolerance);
    ASSERT_EQ(mount->SetSite(c.latitude, 100.0), Ok) << "a site change keeps the alignment";
    for (AnglePair probe : {AnglePair{170, 50}, AnglePair{-120, 35}, AnglePair{10, 35}}) {
      const AnglePair star = c.model == ALTAZ ? probe : AnglePair{probe.lon / 40, probe.lat};
      EXPECT_LT(Separation(AxesOf(*mount, sky(star)), AxesOf(*truth, sky(star))), c.tolerance)
          << "converts as the askew mount sees, at " << star.lon << ", " << star.lat;
    }
  }
}

}  // namespace
}  // namespace scopemount
