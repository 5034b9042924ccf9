#include "geometry/equatorial_mount.h"

#include <algorithm>
#include <cmath>

#include "celestial/angles.h"
#include "geometry/nominal_transform.h"
#include "geometry/star_grades.h"
#include "mount/motion_workers.h"
#include "mount/star_alignment.h"
#include "mount/tracking_workers.h"

namespace scopemount {

namespace {

// Near the pole the hour-angle axis tells too little about the rotation.
constexpr double MAX_ALIGNMENT_STAR_DECLINATION = DegreesToRadians(75.0);
// Limits on how two stars may lie for a second-star alignment.
constexpr double MIN_OPPOSITE_SIDE_DECLINATION_GAP = DegreesToRadians(20.0);
constexpr double MAX_OPPOSITE_SIDE_DECLINATION_GAP = DegreesToRadians(160.0);
constexpr double MIN_SAME_SIDE_DECLINATION_SUM = DegreesToRadians(15.0);
constexpr double MIN_HOUR_ANGLE_GAP = DegreesToRadians(25.0);
// A third star's hour angle must differ from a partner's (across the
// meridian) by this much, and not be nearly the same.
constexpr double MIN_PAIR_HOUR_ANGLE_GAP = DegreesToRadians(20.0);
constexpr double MAX_PAIR_HOUR_ANGLE_GAP = DegreesToRadians(160.0);
// Secant leverage of the best pair earning grades 5 down to 1.
constexpr double THIRD_STAR_GRADES[5] = {5.5, 3.5, 2.0, 1.0, 0.5};

// Hour angle 0 counts as west of the meridian.
bool WestOfMeridian(double hourAngle) { return hourAngle >= 0.0; }

bool SameSideOfMeridian(const AnglePair& a, const AnglePair& b) {
  return WestOfMeridian(a.lon) == WestOfMeridian(b.lon);
}

// Whether the pair of two stars on opposite sides of the meridian, or on
// the same side, spans enough of the sky in both angles.
bool PairSpansSky(const AnglePair& a, const AnglePair& b) {
  if (!SameSideOfMeridian(a, b)) {
    const double declinations = std::fabs(NormalizeAngle(PI + a.lat + b.lat));
    if (declinations > MAX_OPPOSITE_SIDE_DECLINATION_GAP ||
        declinations < MIN_OPPOSITE_SIDE_DECLINATION_GAP) {
      return false;
    }
    return std::fabs(NormalizeAngle(PI + a.lon - b.lon)) >= MIN_HOUR_ANGLE_GAP;
  }
  if (std::fabs(NormalizeAngle(a.lat + b.lat)) < MIN_SAME_SIDE_DECLINATION_SUM) return false;
  return std::fabs(NormalizeAngle(a.lon - b.lon)) >= MIN_HOUR_ANGLE_GAP;
}

// The leverage of the pair (star, third) on the axis-0 terms, the third
// star being seen from the other side of the pier; negative when the hour
// angles are too close or nearly opposite for the pair to count.
double PairLeverage(const AnglePair& star, const AnglePair& third) {
  const double gap = std::fabs(NormalizeAngle(PI + third.lon - star.lon));
  if (gap < MIN_PAIR_HOUR_ANGLE_GAP || gap > MAX_PAIR_HOUR_ANGLE_GAP) return -1.0;
  return SecantDifference(PI + third.lat, star.lat);
}

// The declination axis in [-pi/2, 3 pi/2), as SkyToAxes gives it.
StarObservation Reduced(StarObservation star) {
  return ReducedObservation(star, MIN_DECLINATION_AXIS_ANGLE);
}

}  // namespace

EquatorialMount::EquatorialMount() { isEquatorial = 1; }

// ---------------------------------------------------------------------------
// Geometry

// North: the identity. South: diag(1, -1, -1), so the nominal axis angles
// are (-hour angle, -declination) and the mount turns the other way.
void EquatorialMount::ResetTransform() {
  Matrix3 skyToAxes(1.0);
  if (latitude < 0.0) {
    skyToAxes = Matrix3(-1.0);
    skyToAxes.at(0, 0) = 1.0;
  }
  LoadNominalTransform(pointing, skyToAxes);
}

// A target west of the meridian (east in the south) is reached with the
// tube on the other side of the pier: axis 0 half a turn round, axis 1
// beyond the pole. The unit vector of (first + pi, pi - second) is that of
// (first, second), so AxesToSky undoes the mirroring by itself.
int32_t EquatorialMount::SkyToAxes(AnglePair* sky, AnglePair* axes, int applyTerms) {
  sky->lon = NormalizeAngle(sky->lon);
  const PointingConversion model = pointing.LoadConversion(ConversionDirection::SkyToAxes);
  AnglePair out = TransformDirection(model.matrix, *sky);
  const double hourAngle = sky->lon;
  const bool mirrored = latitude >= 0.0 ? hourAngle > 0.0 : hourAngle < 0.0;
  if (mirrored) {
    out.lon = NormalizeAngle(PI + out.lon);
    out.lat = NormalizeAngle(PI - out.lat);
  }
  if (applyTerms != 0) {
    const double second = out.lat;
    out.lon = NormalizeAngle(out.lon - AxisZeroTermOffset(model, second));
    out.lat = NormalizeAngle(second - model.indexError);
  }
  if (out.lat < MIN_DECLINATION_AXIS_ANGLE) out.lat += TWO_PI;
  *axes = out;
  return Ok;
}

// How far the aligned polar axis points from the true pole. The pole of
// either hemisphere lies at declination-axis angle pi/2 in the nominal
// frame (the southern frame turns -pi/2 into +pi/2); its hour angle is
// arbitrary and chosen so that neither hemisphere mirrors it.
double EquatorialMount::GetAxisMisalignment() {
  AnglePair pole = latitude >= 0.0 ? AnglePair{-QUARTER_PI, HALF_PI}
                                   : AnglePair{QUARTER_PI, -HALF_PI};
  AnglePair axes;
  SkyToAxes(&pole, &axes, 1);
  return std::fabs(axes.lat - HALF_PI);
}

// ---------------------------------------------------------------------------
// Alignment stars

int32_t EquatorialMount::RateAlignmentStar(const AnglePair& star) {
  const int32_t score = Mount::RateAlignmentStar(star);
  if (score == 0) return 0;
  const int32_t cap =
      std::fabs(star.lat) < MAX_ALIGNMENT_STAR_DECLINATION ? BEST_STAR_SCORE : 0;
  return std::min(score, cap);
}

int32_t EquatorialMount::RateSecondStar(AnglePair first, AnglePair second, int32_t method) {
  const int32_t score = RateAlignmentStar(second);
  if (score == 0) return 0;
  if (!PairSpansSky(first, second)) return 0;
  if (method != SECANT_GRADED_METHOD) return score;
  // Graded pairs must be seen from one side of the pier.
  if (!SameSideOfMeridian(first, second)) return 0;
  return std::min(SecondStarSecantGrade(SecantDifference(first.lat, second.lat)), score);
}

int32_t EquatorialMount::RateThirdStar(AnglePair first, AnglePair second, AnglePair third) {
  const int32_t score = RateAlignmentStar(third);
  if (score == 0) return 0;
  // The third star is seen from the other side of the pier than the first.
  if (SameSideOfMeridian(first, third)) return 0;
  // The second star's pair is judged first; when it does not count the
  // configuration is rejected outright.
  const double secondPair = PairLeverage(second, third);
  if (secondPair < 0.0) return 0;
  const double firstPair = std::max(PairLeverage(first, third), 0.0);
  const int32_t grade = GradeAbove(std::max(firstPair, secondPair), THIRD_STAR_GRADES);
  return std::min(grade, score);
}

int32_t EquatorialMount::AlignOneStar(AnglePair sky, AnglePair axes) {
  const StarObservation star = Reduced({sky, axes});
  return Mount::AlignOneStar(star.sky, star.axes);
}

int32_t EquatorialMount::AlignTwoStars(StarObservation first, StarObservation second) {
  return Mount::AlignTwoStars(Reduced(first), Reduced(second));
}

int32_t EquatorialMount::AlignThreeStars(StarObservation first, StarObservation second,
                                         StarObservation third) {
  return Mount::AlignThreeStars(Reduced(first), Reduced(second), Reduced(third));
}

// ---------------------------------------------------------------------------
// Tracking and motion

int32_t EquatorialMount::StartTracking() { return StartEquatorialTracking(*this); }

int32_t EquatorialMount::StartTrackingAfter(uint32_t request) {
  return IsLatestOnBothAxes(request) ? StartEquatorialTracking(*this, request) : Ok;
}

// Ending a manual motion of the hour-angle axis while tracking is wanted
// hands that axis back to tracking instead of stopping it.
int32_t EquatorialMount::StopAxis(uint32_t axis) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  RequestAxisStop(axis);
  if (axis == 0 && trackingWanted != 0) {
    StartTracking();
    return Ok;
  }
  return StopAxisMotor(axis);
}

// Axis targets are taken as given: no reduction and no altitude check.
int32_t EquatorialMount::GotoAxes(double angle0, double angle1) {
  return StartAxisTargetSlew(*this, angle0, angle1);
}

}  // namespace scopemount
