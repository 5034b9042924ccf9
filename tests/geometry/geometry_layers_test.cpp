// The two geometry layers on the simulators, with no thread started:
// nominal matrices, the side-of-pier rule, star scores, and the axis errors
// a two- or three-star alignment measures on a mount built askew.
#include <gtest/gtest.h>

#include <cmath>

#include "celestial/angles.h"
#include "geometry/altaz_simulator.h"
#include "geometry/askew_model.h"
#include "geometry/equatorial_simulator.h"
#include "support/angles.h"

namespace scopemount {
namespace {

using testing::Rotation;

// Separations come from an arc cosine: near 0 it resolves about 1.5e-8.
constexpr double ROUND_TRIP = 1e-7;

template <typename Simulator>
OwnedMount<Simulator> MakeAt(double latitude) {
  OwnedMount<Simulator> mount(new Simulator);
  EXPECT_EQ(mount->SetSite(latitude, 0.0), Ok);
  return mount;
}

AnglePair Axes(Mount& mount, AnglePair sky, int applyTerms = 1) {
  AnglePair axes;
  mount.SkyToAxes(&sky, &axes, applyTerms);
  return axes;
}

AnglePair Sky(Mount& mount, AnglePair axes, int applyTerms = 1) {
  AnglePair sky;
  mount.AxesToSky(&axes, &sky, applyTerms);
  return sky;
}

double Separation(const AnglePair& a, const AnglePair& b) {
  return AngularSeparation(a.lon, a.lat, b.lon, b.lat);
}

// The sky position at (azimuth from north toward east, altitude).
AnglePair AtHorizontal(Mount& mount, double azimuth, double altitude) {
  const double fromSouth = azimuth >= 0.0 ? azimuth - PI : azimuth + PI;
  return mount.HorizontalToEquatorial({fromSouth, altitude});
}

// A simulator built askew by `skew`, with the given pointing terms: where
// such a mount really sees stars.
template <typename Simulator>
OwnedMount<Simulator> Askew(double latitude, const Matrix3& skew, double index = 0.0,
                            double cone = 0.0) {
  OwnedMount<Simulator> truth = MakeAt<Simulator>(latitude);
  testing::MakeAskew(*truth, skew, index, cone);
  return truth;
}

StarObservation Observe(Mount& truth, AnglePair sky) { return {sky, Axes(truth, sky)}; }

// --- Alt/Az ------------------------------------------------------------------

TEST(AltAzGeometry, NominalAxesAreAzimuthAndAltitudeInBothHemispheres) {
  for (double latitude : {0.6, -0.6, 0.0}) {
    auto mount = MakeAt<AltAzSimulator>(latitude);
    for (double ha = -11.0; ha <= 11.0; ha += 2.5) {
      for (double dec = -80.0; dec <= 80.0; dec += 20.0) {
        const AnglePair sky{ha * HOUR, dec * DEG};
        const AnglePair axes = Axes(*mount, sky);
        EXPECT_NEAR(axes.lat, mount->ComputeAltitude(sky), 1e-9) << latitude << " " << ha;
        EXPECT_NEAR(NormalizeAngle(axes.lon - mount->ComputeAzimuth(sky)), 0.0, 1e-9)
            << "azimuth from north toward east at latitude " << latitude << " ha " << ha;
        EXPECT_LT(Separation(Sky(*mount, axes), sky), ROUND_TRIP) << "the way back";
      }
    }
    const AnglePair zenith = Axes(*mount, {0.0, latitude});
    EXPECT_NEAR(zenith.lat, HALF_PI, 1e-9);
  }
  // East of the meridian a star rises in the east: positive azimuth.
  auto north = MakeAt<AltAzSimulator>(0.6);
  EXPECT_GT(Axes(*north, {-3 * HOUR, 0.0}).lon, 0.0);
  EXPECT_NEAR(std::fabs(Axes(*north, {0.0, 0.0}).lon), PI, 1e-9) << "due south";
}

TEST(AltAzGeometry, ConstructionAndSite) {
  AltAzSimulator mount;
  EXPECT_EQ(mount.isEquatorial, 0u);
  EXPECT_EQ(mount.modelId, 7);
  // The nominal matrices are loaded for the default latitude at once.
  const AnglePair zenith = Axes(mount, {0.0, DEFAULT_LATITUDE});
  EXPECT_NEAR(zenith.lat, HALF_PI, 1e-9);
  EXPECT_EQ(mount.SetExtraMode(1), NotImplemented);
  EXPECT_EQ(mount.GotoAxes(NAN, 0.0), InvalidParameter);
  EXPECT_EQ(mount.axisRunFlag[0], 0u) << "a refused target claims nothing";
}

TEST(AltAzGeometry, FirstStarScoreStopsBelowSixtyDegrees) {
  auto mount = MakeAt<AltAzSimulator>(0.6);
  EXPECT_EQ(mount->RateAlignmentStar(AtHorizontal(*mount, 1.0, 59.99 * DEG)), 5);
  EXPECT_EQ(mount->RateAlignmentStar(AtHorizontal(*mount, 1.0, 60.01 * DEG)), 0);
  EXPECT_EQ(mount->RateAlignmentStar(AtHorizontal(*mount, 1.0, 14.9 * DEG)), 0);
  EXPECT_EQ(mount->RateFirstStar(AtHorizontal(*mount, 1.0, 30 * DEG)), 5);
  ASSERT_EQ(mount->SetAltitudeLimits(0.6, 1.2), Ok);
  EXPECT_EQ(mount->RateAlignmentStar(AtHorizontal(*mount, 1.0, 30 * DEG)), 0)
      << "below the lower limit";
}

TEST(AltAzGeometry, SecondStarNeedsSixtyDegreesOfAzimuthAndIsGradedBySecant) {
  auto mount = MakeAt<AltAzSimulator>(0.6);
  const AnglePair east = AtHorizontal(*mount, -170 * DEG, 30 * DEG);
  const AnglePair west = AtHorizontal(*mount, 170 * DEG, 30 * DEG);
  EXPECT_EQ(mount->RateSecondStar(east, west, 1), 5)
      << "azimuths -170 and 170 differ by 340 degrees unreduced";
  const AnglePair near = AtHorizontal(*mount, -130 * DEG, 30 * DEG);
  EXPECT_EQ(mount->RateSecondStar(east, near, 1), 0) << "40 degrees of azimuth";
  const AnglePair a = AtHorizontal(*mount, 0.0, 20 * DEG);
  // 1/cos(20) = 1.064; the second star's secant sets the grade.
  const struct {
    double altitude;
    int32_t grade;
  } cases[] = {{25 * DEG, 5}, {35 * DEG, 4}, {45 * DEG, 3}, {55 * DEG, 2}, {59 * DEG, 0}};
  for (const auto& c : cases) {
    const AnglePair b = AtHorizontal(*mount, 90 * DEG, c.altitude);
    EXPECT_EQ(mount->RateSecondStar(a, b, 2), c.grade) << c.altitude / DEG;
    EXPECT_EQ(mount->RateSecondStar(a, b, 0), 5) << "other methods ignore the secant";
  }
}

TEST(AltAzGeometry, ThirdStarGradesTheBetterPairAndWantsTheOtherStarApart) {
  auto mount = MakeAt<AltAzSimulator>(0.6);
  const AnglePair c = AtHorizontal(*mount, 0.0, 58 * DEG);
  const AnglePair a = AtHorizontal(*mount, 120 * DEG, 20 * DEG);
  const AnglePair b = AtHorizontal(*mount, -120 * DEG, 20 * DEG);
  // Both pairs have leverage |1/cos 58 - 1/cos 20| = 0.82: grade 3.
  EXPECT_EQ(mount->RateThirdStar(a, b, c), 3);
  // Equal values (0.62, grade 2) grade the (first, third) pair and want the
  // second star more than 45 degrees from the third.
  const AnglePair near = AtHorizontal(*mount, -25 * DEG, 38 * DEG);
  const AnglePair far = AtHorizontal(*mount, 120 * DEG, 38 * DEG);
  EXPECT_LT(Separation(near, c), 45 * DEG);
  EXPECT_EQ(mount->RateThirdStar(far, near, c), 0);
  EXPECT_EQ(mount->RateThirdStar(near, far, c), 2);
  // The second star's pair too close in azimuth ends the evaluation.
  const AnglePair bSameAzimuth = AtHorizontal(*mount, 10 * DEG, 20 * DEG);
  EXPECT_EQ(mount->RateThirdStar(a, bSameAzimuth, c), 0);
  // A high third star is refused whatever the pairs.
  EXPECT_EQ(mount->RateThirdStar(a, b, AtHorizontal(*mount, 0.0, 65 * DEG)), 0);
}

TEST(AltAzGeometry, TwoStarAlignmentMeasuresTheTiltOfTheAzimuthAxis) {
  for (double latitude : {0.6, -0.6}) {
    const double tilt = 0.5 * DEG;
    auto truth = Askew<AltAzSimulator>(latitude, Rotation(0, tilt));
    auto mount = MakeAt<AltAzSimulator>(latitude);
    EXPECT_NEAR(mount->GetAxisMisalignment(), 0.0, 1e-7) << "nominal: no tilt";
    const StarObservation s1 = Observe(*truth, AtHorizontal(*mount, 40 * DEG, 30 * DEG));
    const StarObservation s2 = Observe(*truth, AtHorizontal(*mount, -80 * DEG, 45 * DEG));
    ASSERT_EQ(mount->AlignTwoStars(s1, s2), Ok);
    EXPECT_EQ(mount->aligned, 1u);
    EXPECT_EQ(mount->alignmentQuality, 100u);
    EXPECT_NEAR(mount->misalignment, tilt, 1 * ARCSEC) << latitude;
    // A third star now converts as the askew mount sees it.
    const AnglePair star = AtHorizontal(*mount, 170 * DEG, 50 * DEG);
    EXPECT_LT(Separation(Axes(*mount, star), Axes(*truth, star)), 1 * ARCSEC);
    // A site change keeps the alignment.
    ASSERT_EQ(mount->SetSite(latitude, 100.0), Ok);
    EXPECT_LT(Separation(Axes(*mount, star), Axes(*truth, star)), 1 * ARCSEC);
  }
}

TEST(AltAzGeometry, AlignmentReducesEveryAngleOfTheObservations) {
  auto truth = Askew<AltAzSimulator>(0.6, Rotation(1, 0.3 * DEG));
  auto mount = MakeAt<AltAzSimulator>(0.6);
  StarObservation s1 = Observe(*truth, AtHorizontal(*mount, 40 * DEG, 30 * DEG));
  StarObservation s2 = Observe(*truth, AtHorizontal(*mount, -80 * DEG, 45 * DEG));
  s1.sky.lon += 2 * TWO_PI;
  s1.axes.lon -= TWO_PI;
  s2.axes.lat += TWO_PI;
  ASSERT_EQ(mount->AlignTwoStars(s1, s2), Ok);
  EXPECT_NEAR(mount->misalignment, 0.3 * DEG, 1 * ARCSEC);
  EXPECT_EQ(mount->AlignTwoStars(s1, s1), AlignFailed) << "one star twice fixes no frame";
}

TEST(AltAzGeometry, ThreeStarAlignmentFitsTermsAndTiltFromUnreducedAngles) {
  const double index = 0.3 * DEG;
  const double cone = 0.2 * DEG;
  auto truth = Askew<AltAzSimulator>(0.6, Rotation(1, 0.3 * DEG), index, cone);
  auto mount = MakeAt<AltAzSimulator>(0.6);
  const PointingSnapshot nominal = mount->pointing.Load();
  StarObservation s1 = Observe(*truth, AtHorizontal(*mount, 40 * DEG, 15 * DEG));
  StarObservation s2 = Observe(*truth, AtHorizontal(*mount, -80 * DEG, 30 * DEG));
  StarObservation s3 = Observe(*truth, AtHorizontal(*mount, 160 * DEG, 55 * DEG));
  s1.sky.lat += TWO_PI;
  s2.axes.lon -= TWO_PI;
  s3.axes.lat += 2 * TWO_PI;
  s3.sky.lon -= TWO_PI;
  ASSERT_EQ(mount->AlignThreeStars(s1, s2, s3), Ok);
  const PointingSnapshot fitted = mount->pointing.Load();
  EXPECT_NEAR(fitted.indexError, index, 60 * ARCSEC);
  EXPECT_NEAR(fitted.coneError, cone, 60 * ARCSEC);
  EXPECT_NEAR(mount->misalignment, 0.3 * DEG, 60 * ARCSEC);
  EXPECT_EQ(mount->alignmentQuality, 100u);
  for (double azimuth : {-120.0, 10.0, 100.0}) {
    const AnglePair star = AtHorizontal(*mount, azimuth * DEG, 35 * DEG);
    EXPECT_LT(Separation(Axes(*mount, star), Axes(*truth, star)), 60 * ARCSEC) << azimuth;
  }

  EXPECT_EQ(mount->AlignThreeStars(s1, s1, s3), AlignFailed) << "two of the stars coincide";
  EXPECT_EQ(mount->pointing.Load().skyToAxes, nominal.skyToAxes) << "the nominal frame";
  EXPECT_EQ(mount->aligned, 1u) << "the earlier alignment's flag stays";
}

// --- Equatorial ----------------------------------------------------------------

TEST(EquatorialGeometry, SidesOfThePierInTheNorth) {
  auto mount = MakeAt<EquatorialSimulator>(0.6);
  const double dec = 40 * DEG;
  AnglePair east = Axes(*mount, {-HOUR, dec});
  EXPECT_NEAR(east.lon, -HOUR, 1e-12);
  EXPECT_NEAR(east.lat, dec, 1e-12);
  AnglePair west = Axes(*mount, {HOUR, dec});
  EXPECT_NEAR(west.lon, NormalizeAngle(PI + HOUR), 1e-12) << "mirrored past the meridian";
  EXPECT_NEAR(west.lat, PI - dec, 1e-12) << "beyond the pole";
  AnglePair meridian = Axes(*mount, {0.0, dec});
  EXPECT_NEAR(meridian.lon, 0.0, 1e-12) << "hour angle 0 is never mirrored";
  EXPECT_NEAR(meridian.lat, dec, 1e-12);
  // A mirrored southern declination lands above pi, not below -pi/2.
  AnglePair low = Axes(*mount, {HOUR, -30 * DEG});
  EXPECT_NEAR(low.lat, PI + 30 * DEG, 1e-12);
  // The hour angle is reduced in the caller's pair.
  AnglePair sky{HOUR + TWO_PI, dec};
  AnglePair axes;
  mount->SkyToAxes(&sky, &axes, 1);
  EXPECT_NEAR(sky.lon, HOUR, 1e-12);
}

TEST(EquatorialGeometry, SidesOfThePierInTheSouth) {
  auto mount = MakeAt<EquatorialSimulator>(-0.6);
  const double dec = -40 * DEG;
  AnglePair west = Axes(*mount, {HOUR, dec});
  EXPECT_NEAR(west.lon, -HOUR, 1e-12) << "south: (-hour angle, -declination)";
  EXPECT_NEAR(west.lat, -dec, 1e-12);
  AnglePair east = Axes(*mount, {-HOUR, dec});
  EXPECT_NEAR(east.lon, NormalizeAngle(PI + HOUR), 1e-12) << "mirrored east of the meridian";
  EXPECT_NEAR(east.lat, PI + dec, 1e-12);
}

TEST(EquatorialGeometry, EveryPositionComesBackWithPointingTerms) {
  for (double latitude : {0.6, -0.6}) {
    auto mount = MakeAt<EquatorialSimulator>(latitude);
    mount->pointing.Update([](PointingSnapshot& model) {
      model.indexError = 0.01;
      model.coneError = 0.004;
      model.nonPerpError = -0.002;
    });
    for (double ha = -11.5; ha <= 11.5; ha += 1.5) {
      for (double dec = -75.0; dec <= 75.0; dec += 15.0) {
        const AnglePair sky{ha * HOUR, dec * DEG};
        const AnglePair axes = Axes(*mount, sky);
        EXPECT_GE(axes.lat, -HALF_PI);
        EXPECT_LT(axes.lat, 1.5 * PI);
        EXPECT_GE(axes.lon, -PI);
        EXPECT_LE(axes.lon, PI);
        EXPECT_LT(Separation(Sky(*mount, axes), sky), ROUND_TRIP) << latitude << " " << ha << " " << dec;
      }
    }
  }
}

TEST(EquatorialGeometry, ConstructionTrackingRateFollowsTheHemisphere) {
  EquatorialSimulator mount;
  EXPECT_EQ(mount.isEquatorial, 1u);
  EXPECT_EQ(mount.modelId, 6);
  EXPECT_EQ(mount.SetExtraMode(3), Ok);
  ASSERT_EQ(mount.SetSite(-0.5, 0.0), Ok);
  EXPECT_EQ(mount.trackingRate, -SIDEREAL_RATE);
  ASSERT_EQ(mount.SetTrackingRate(TRACKING_SOLAR), Ok);
  EXPECT_EQ(mount.trackingRate, -SOLAR_RATE);
}

TEST(EquatorialGeometry, StarScores) {
  auto mount = MakeAt<EquatorialSimulator>(0.6);
  EXPECT_EQ(mount->RateAlignmentStar({-HOUR, 74.9 * DEG}), 5);
  EXPECT_EQ(mount->RateAlignmentStar({-HOUR, 75.0 * DEG}), 0) << "too near the pole";
  EXPECT_EQ(mount->RateAlignmentStar({-HOUR, -40 * DEG}), 0) << "below the horizon";
  // Opposite sides of the meridian pass the separations but not method 2.
  const AnglePair eastStar{-2 * HOUR, 20 * DEG};
  const AnglePair westStar{2 * HOUR, 30 * DEG};
  EXPECT_EQ(mount->RateSecondStar(eastStar, westStar, 1), 5);
  EXPECT_EQ(mount->RateSecondStar(eastStar, westStar, 2), 0);
  // Same side: hour angles at least 25 degrees apart, graded by secant.
  const AnglePair eastStar2{-4 * HOUR, 30 * DEG};
  EXPECT_EQ(mount->RateSecondStar(eastStar, eastStar2, 2), 5);  // 1.064 vs 1.155
  EXPECT_EQ(mount->RateSecondStar(eastStar, {-2.5 * HOUR, 30 * DEG}, 1), 0) << "7.5 degrees";
  EXPECT_EQ(mount->RateSecondStar({-2 * HOUR, 5 * DEG}, {-4 * HOUR, 5 * DEG}, 1), 0)
      << "declinations summing under 15 degrees";
  EXPECT_EQ(mount->RateSecondStar(eastStar, {-4 * HOUR, 60 * DEG}, 2), 0)
      << "secants 1.064 and 2.0 differ too much";
  // Third star: on the other side of the meridian from the first.
  const AnglePair third{2 * HOUR, 60 * DEG};
  EXPECT_EQ(mount->RateThirdStar(eastStar, eastStar2, {-3 * HOUR, 60 * DEG}), 0)
      << "first and third on one side";
  // Leverage |1/cos(pi + 60) - 1/cos 20| = |-2 - 1.064| = 3.06: grade 3.
  EXPECT_EQ(mount->RateThirdStar(eastStar, eastStar2, third), 3);
  EXPECT_EQ(mount->RateThirdStar(eastStar, {2.5 * HOUR, 30 * DEG}, third), 0)
      << "the second star's hour angle nearly the third's ends the evaluation";
}

TEST(EquatorialGeometry, TwoStarAlignmentMeasuresThePolarAxisError) {
  for (double latitude : {0.6, -0.6}) {
    const double error = 0.4 * DEG;
    auto truth = Askew<EquatorialSimulator>(latitude, Rotation(1, error));
    auto mount = MakeAt<EquatorialSimulator>(latitude);
    EXPECT_NEAR(mount->GetAxisMisalignment(), 0.0, 1e-9) << "nominal: on the pole";
    const double sign = latitude > 0.0 ? 1.0 : -1.0;
    // One star each side of the meridian: the second one mirrored.
    const StarObservation s1 = Observe(*truth, {-2 * HOUR, sign * 20 * DEG});
    const StarObservation s2 = Observe(*truth, {1.5 * HOUR, sign * 50 * DEG});
    EXPECT_NE(s1.axes.lat > HALF_PI, s2.axes.lat > HALF_PI)
        << "one star is seen from the other side of the pier";
    ASSERT_EQ(mount->AlignTwoStars(s1, s2), Ok);
    EXPECT_NEAR(mount->misalignment, error, 1 * ARCSEC) << latitude;
    for (double ha : {-5.0, 3.0}) {
      const AnglePair star{ha * HOUR, sign * 35 * DEG};
      EXPECT_LT(Separation(Axes(*mount, star), Axes(*truth, star)), 1 * ARCSEC) << ha;
    }
  }
}

TEST(EquatorialGeometry, ThreeStarAlignmentRecoversIndexAndConeTerms) {
  const double index = 0.3 * DEG;
  const double cone = 0.2 * DEG;
  auto truth = Askew<EquatorialSimulator>(0.6, Rotation(2, 1.0 * DEG), index, cone);
  auto mount = MakeAt<EquatorialSimulator>(0.6);
  const StarObservation s1 = Observe(*truth, {-1 * HOUR, 10 * DEG});
  const StarObservation s2 = Observe(*truth, {-4 * HOUR, 60 * DEG});
  const StarObservation s3 = Observe(*truth, {2 * HOUR, 40 * DEG});
  ASSERT_EQ(mount->AlignThreeStars(s1, s2, s3), Ok);
  const PointingSnapshot fitted = mount->pointing.Load();
  EXPECT_NEAR(fitted.indexError, index, 60 * ARCSEC);
  EXPECT_NEAR(fitted.coneError, cone, 60 * ARCSEC);
  for (double ha : {-3.0, 0.5, 4.0}) {
    const AnglePair star{ha * HOUR, 30 * DEG};
    EXPECT_LT(Separation(Axes(*mount, star), Axes(*truth, star)), 60 * ARCSEC) << ha;
  }
}

}  // namespace
}  // namespace scopemount
