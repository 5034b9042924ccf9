#include "geometry/altaz_mount.h"

#include <algorithm>
#include <cmath>

#include "celestial/angles.h"
#include "geometry/nominal_transform.h"
#include "geometry/star_grades.h"
#include "mount/motion_workers.h"
#include "mount/star_alignment.h"

namespace scopemount {

namespace {

// Near the zenith the azimuth axis turns too fast to centre a star.
constexpr double MAX_ALIGNMENT_STAR_ALTITUDE = DegreesToRadians(60.0);
// Two stars closer than this in azimuth say too little about the rotation.
constexpr double MIN_SECOND_STAR_AZIMUTH_GAP = DegreesToRadians(60.0);
// A third star must lie this far round in azimuth from a partner, and not
// nearly opposite it.
constexpr double MIN_PAIR_AZIMUTH_GAP = DegreesToRadians(20.0);
constexpr double MAX_PAIR_AZIMUTH_GAP = DegreesToRadians(160.0);
constexpr double MIN_THIRD_STAR_SEPARATION = DegreesToRadians(45.0);
// Secant leverage of the best pair earning grades 5 down to 1.
constexpr double THIRD_STAR_GRADES[5] = {2.5, 0.8452, 0.6793, 0.3789, 0.1855};

struct Horizontal {
  double azimuth;
  double altitude;
};

// The leverage of a pair on the axis-0 terms, or a negative value when the
// two azimuths are too close or nearly opposite for the pair to count.
double PairLeverage(const Horizontal& star, const Horizontal& third) {
  const double gap = std::fabs(NormalizeAngle(third.azimuth - star.azimuth));
  if (gap < MIN_PAIR_AZIMUTH_GAP || gap > MAX_PAIR_AZIMUTH_GAP) return -1.0;
  return SecantDifference(third.altitude, star.altitude);
}

}  // namespace

AltAzMount::AltAzMount() { isEquatorial = 0; }

AltAzMount::~AltAzMount() { HaltTracking(); }

// ---------------------------------------------------------------------------
// Geometry

void AltAzMount::ResetTransform() {
  const double lat = latitude;
  const double sinLat = std::sin(lat);
  const double cosLat = std::cos(lat);
  // Rows (-sin, 0, cos), (0, -1, 0), (cos, 0, sin): azimuth from north
  // toward east, altitude.
  Matrix3 skyToAxes(-1.0);
  skyToAxes.at(0, 0) = -sinLat;
  skyToAxes.at(0, 2) = cosLat;
  skyToAxes.at(2, 0) = cosLat;
  skyToAxes.at(2, 2) = sinLat;
  LoadNominalTransform(pointing, skyToAxes);
}

// The tilt of the aligned azimuth axis from the true vertical: how far the
// local zenith lies from the axis pole in the axis frame.
double AltAzMount::GetAxisMisalignment() {
  AnglePair zenith{0.0, latitude};
  AnglePair axes;
  SkyToAxes(&zenith, &axes, 1);
  const double altitude = axes.lat + pointing.Load().indexError;
  const double halfPi = PI / 2.0;
  const double cosine = std::sin(halfPi) * std::sin(altitude) +
                        std::cos(halfPi) * std::cos(altitude) * std::cos(0.0 - axes.lon);
  return std::fabs(cosine) <= 1.0 ? std::acos(cosine) : 0.0;
}

// ---------------------------------------------------------------------------
// Alignment stars

int32_t AltAzMount::RateAlignmentStar(const AnglePair& star) {
  const int32_t score = Mount::RateAlignmentStar(star);
  if (score == 0) return 0;
  const int32_t cap = ComputeAltitude(star) < MAX_ALIGNMENT_STAR_ALTITUDE ? BEST_STAR_SCORE : 0;
  return std::min(score, cap);
}

int32_t AltAzMount::RateSecondStar(AnglePair first, AnglePair second, int32_t method) {
  const int32_t score = RateAlignmentStar(second);
  if (score == 0) return 0;
  // The plain difference: azimuths either side of north count as far apart.
  const double azimuthGap = std::fabs(ComputeAzimuth(first) - ComputeAzimuth(second));
  if (azimuthGap < MIN_SECOND_STAR_AZIMUTH_GAP) return 0;
  if (method != SECANT_GRADED_METHOD) return score;
  const int32_t grade =
      SecondStarSecantGrade(SecantDifference(ComputeAltitude(first), ComputeAltitude(second)));
  return std::min(grade, score);
}

int32_t AltAzMount::RateThirdStar(AnglePair first, AnglePair second, AnglePair third) {
  const int32_t score = RateAlignmentStar(third);
  if (score == 0) return 0;
  const Horizontal a{ComputeAzimuth(first), ComputeAltitude(first)};
  const Horizontal b{ComputeAzimuth(second), ComputeAltitude(second)};
  const Horizontal c{ComputeAzimuth(third), ComputeAltitude(third)};
  // The second star's pair is judged first; when it does not count the
  // configuration is rejected outright.
  const double secondPair = PairLeverage(b, c);
  if (secondPair < 0.0) return 0;
  const double firstPair = std::max(PairLeverage(a, c), 0.0);
  // Grade the pair with more leverage; the star of the other pair must
  // stand well apart from the third.
  const bool firstPairGraded = firstPair >= secondPair;
  const AnglePair& other = firstPairGraded ? second : first;
  if (std::fabs(AngularSeparation(other.lon, other.lat, third.lon, third.lat)) <=
      MIN_THIRD_STAR_SEPARATION) {
    return 0;
  }
  const int32_t grade = GradeAbove(firstPairGraded ? firstPair : secondPair, THIRD_STAR_GRADES);
  return std::min(grade, score);
}

int32_t AltAzMount::AlignOneStar(AnglePair sky, AnglePair axes) {
  const StarObservation star = ReducedObservation({sky, axes});
  return Mount::AlignOneStar(star.sky, star.axes);
}

int32_t AltAzMount::AlignTwoStars(StarObservation first, StarObservation second) {
  return Mount::AlignTwoStars(ReducedObservation(first), ReducedObservation(second));
}

int32_t AltAzMount::AlignThreeStars(StarObservation first, StarObservation second,
                                    StarObservation third) {
  return Mount::AlignThreeStars(ReducedObservation(first), ReducedObservation(second),
                                ReducedObservation(third));
}

// ---------------------------------------------------------------------------
// Tracking and motion: every motion halts the tracking loop first.

void AltAzMount::HaltTracking() { tracking_.Halt(); }

void AltAzMount::HaltTrackingIfRunning() {
  if (tracking_.IsStartingOrRunning()) HaltTracking();
}

int32_t AltAzMount::StartTracking() { return tracking_.Start(); }

int32_t AltAzMount::StartTrackingAfter(uint32_t request) {
  return IsLatestOnBothAxes(request) ? tracking_.Start(request) : Ok;
}

// The loop leaves its last rates set when it ends, so both motors are
// stopped whether or not it was running.
int32_t AltAzMount::StopTracking() {
  HaltTrackingIfRunning();
  const int32_t stopped = StopAxisMotor(0);
  if (stopped != Ok) return stopped;
  return StopAxisMotor(1);
}

int32_t AltAzMount::MoveAxis(uint32_t axis, double rate) {
  HaltTracking();
  return Mount::MoveAxis(axis, rate);
}

// Ending a manual motion resumes tracking when the user asked for it and no
// axis is still driven.
int32_t AltAzMount::StopAxis(uint32_t axis) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  RequestAxisStop(axis);
  const int32_t stopped = StopAxisMotor(axis);
  if (stopped != Ok) return stopped;
  if (axisRunFlag[0] == 0 && axisRunFlag[1] == 0 && trackingWanted != 0) StartTracking();
  return Ok;
}

int32_t AltAzMount::GotoEquatorial(AnglePair sky) {
  if (!AllFinite({sky.lon, sky.lat})) return InvalidParameter;
  HaltTrackingIfRunning();
  return Mount::GotoEquatorial(sky);
}

int32_t AltAzMount::GotoHorizontal(double azimuth, double altitude) {
  if (!AllFinite({azimuth, altitude})) return InvalidParameter;
  HaltTrackingIfRunning();
  return Mount::GotoHorizontal(azimuth, altitude);
}

// Axis targets are taken as given: no reduction and no altitude check.
int32_t AltAzMount::GotoAxes(double angle0, double angle1) {
  if (!AllFinite({angle0, angle1})) return InvalidParameter;
  HaltTrackingIfRunning();
  return StartAxisTargetSlew(*this, angle0, angle1);
}

}  // namespace scopemount
