#include "mount/star_alignment.h"

#include <cmath>

#include "celestial/angles.h"
#include "mount/float_faults.h"

namespace scopemount {

namespace {

// The cone term is fitted on a pair of stars whose axis-0 angles lie this
// far apart at least and at most: closer pairs (or nearly opposite ones)
// say nothing about it.
constexpr double CONE_PAIR_MIN_SEPARATION = 0.08726646259971647;  // 5 degrees
constexpr double CONE_PAIR_MAX_SEPARATION = 3.0543261909900767;   // 175 degrees

bool IsFinite(const AnglePair& p) { return std::isfinite(p.lon) && std::isfinite(p.lat); }
bool IsFinite(const StarObservation& o) { return IsFinite(o.sky) && IsFinite(o.axes); }

// A subnormal operand is a fault even where the hardware raises no
// underflow flag for what is computed from it.
void CheckOperands(FaultWatch& watch, const StarObservation& o) {
  for (double v : {o.sky.lon, o.sky.lat, o.axes.lon, o.axes.lat}) watch.Check(v);
}

// The axis-0 angle with the cone and non-perpendicularity terms applied, at
// an axis-1 angle already corrected by the index term.
double CorrectedAxisZero(const PointingSnapshot& terms, double axis0, double axis1) {
  return axis0 + AxisZeroTermOffset(terms.coneError, terms.nonPerpError, axis1);
}

double CosineOfSeparation(const AnglePair& a, const AnglePair& b) {
  return std::sin(a.lat) * std::sin(b.lat) +
         std::cos(a.lat) * std::cos(b.lat) * std::cos(a.lon - b.lon);
}

// Where the model now in force puts a star, without the pointing terms.
AnglePair NominalAxes(Mount& mount, AnglePair sky) {
  AnglePair axes;
  mount.SkyToAxes(&sky, &axes, 0);
  return axes;
}

Matrix3 Columns(const Vector3& a, const Vector3& b, const Vector3& c) {
  Matrix3 m;
  m.SetColumn(0, a.x, a.y, a.z);
  m.SetColumn(1, b.x, b.y, b.z);
  m.SetColumn(2, c.x, c.y, c.z);
  return m;
}

// Two directions and their unit normal: a frame that two stars fix. Stars
// that coincide have no normal; the division by its zero length is caught.
Matrix3 ColumnsWithNormal(const Vector3& a, const Vector3& b, FaultWatch& watch) {
  const Vector3 cross{a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
  const double length = std::sqrt(cross.x * cross.x + cross.y * cross.y + cross.z * cross.z);
  const Vector3 normal{cross.x / length, cross.y / length, cross.z / length};
  watch.Check(normal);
  return Columns(a, b, normal);
}

void StoreTerms(Mount& mount, double index, double cone) {
  mount.pointing.Update([&](PointingSnapshot& model) {
    model.indexError = index;
    model.coneError = cone;
  });
}

void StoreMatrices(Mount& mount, const Matrix3& skyToAxes, const Matrix3& axesToSky) {
  mount.pointing.Update([&](PointingSnapshot& model) {
    model.skyToAxes = skyToAxes;
    model.axesToSky = axesToSky;
  });
}

void MarkAligned(Mount& mount, bool measureMisalignment) {
  mount.aligned = 1;
  mount.alignmentQuality = ALIGNED_QUALITY;
  mount.misalignment = measureMisalignment ? mount.GetAxisMisalignment() : 0.0;
}

// A fault must not leave an infinity or a NaN behind: the nominal matrices
// go back in (the terms written so far stay).
int32_t FailOnFault(Mount& mount) {
  mount.ResetTransform();
  return AlignFailed;
}

// skyToAxes = A x B^-1, then axesToSky = B x A^-1, from the measured (A) and
// catalogue (B) columns; the pointing terms are already stored. A singular
// catalogue matrix leaves the nominal matrices; a singular axis matrix is
// found only after the new skyToAxes is in, and leaves it there.
int32_t SolveFramesAndFinish(Mount& mount, const Matrix3& axesColumns,
                             const Matrix3& skyColumns, FaultWatch& watch) {
  Matrix3 skyInverse = skyColumns;
  if (skyInverse.Invert() != 0) return AlignFailed;
  Matrix3 skyToAxes = axesColumns;
  skyToAxes.MultiplyInPlace(skyInverse);
  watch.Check(skyToAxes);
  if (watch.Faulted()) return FailOnFault(mount);
  Matrix3 axesInverse = axesColumns;
  if (axesInverse.Invert() != 0) {
    const Matrix3 nominalAxesToSky = mount.pointing.Load().axesToSky;
    StoreMatrices(mount, skyToAxes, nominalAxesToSky);
    return AlignFailed;
  }
  Matrix3 axesToSky = skyColumns;
  axesToSky.MultiplyInPlace(axesInverse);
  watch.Check(axesToSky);
  if (watch.Faulted()) return FailOnFault(mount);
  StoreMatrices(mount, skyToAxes, axesToSky);
  MarkAligned(mount, /*measureMisalignment=*/true);
  return Ok;
}

// The partner of the third star for the cone fit: the first star, unless
// its axis-0 angle is too close to (or nearly opposite) the third's, or the
// second star is usable and has more leverage on the cone term.
const StarObservation& ConePartner(const StarObservation& first, const StarObservation& second,
                                   const StarObservation& third, double leverage13,
                                   double leverage23) {
  const auto usable = [&third](const StarObservation& star) {
    const double d = std::fabs(NormalizeAngle(star.axes.lon - third.axes.lon));
    return d > CONE_PAIR_MIN_SEPARATION && d < CONE_PAIR_MAX_SEPARATION;
  };
  if (!usable(first)) return second;
  if (usable(second) && leverage13 < leverage23) return second;
  return first;
}

}  // namespace

bool FitIndexError(const PointingSnapshot& terms, const StarObservation& first,
                   const StarObservation& second, double* index) {
  FaultWatch watch;
  const double b1 = first.axes.lat + *index;
  const double b2 = second.axes.lat + *index;
  const double cs = watch.Check(CosineOfSeparation(first.sky, second.sky));
  const double du = watch.Check(CorrectedAxisZero(terms, first.axes.lon, b1) -
                                CorrectedAxisZero(terms, second.axes.lon, b2));
  const double c = std::cos(du);
  // cos(b1 + b2) at which the two measured directions are as far apart as
  // the stars; the division fails for measurements on one meridian.
  const double x = watch.Check((2.0 * cs - (c + 1.0) * std::cos(b1 - b2)) / (c - 1.0));
  if (watch.Faulted() || std::fabs(x) > 1.0) return false;
  const double sum = NormalizeAngle(b1 + b2);
  const double w = sum >= 0.0 ? std::acos(x) : -std::acos(x);
  const double refined = watch.Check(*index + (w - sum) / 2.0);
  if (watch.Faulted()) return false;
  *index = refined;
  return true;
}

bool FitConeError(const PointingSnapshot& terms, const StarObservation& first,
                  const StarObservation& second, double* cone) {
  FaultWatch watch;
  const double b1 = first.axes.lat + terms.indexError;
  const double b2 = second.axes.lat + terms.indexError;
  const double cs = watch.Check(CosineOfSeparation(first.sky, second.sky));
  const double cos1 = std::cos(b1);
  const double cos2 = std::cos(b2);
  // Cosine of the axis-0 difference the stars' separation requires.
  const double x = watch.Check((cs - std::sin(b1) * std::sin(b2)) / (cos1 * cos2));
  if (watch.Faulted() || std::fabs(x) > 1.0) return false;
  const double dm = NormalizeAngle(first.axes.lon - second.axes.lon);
  const double w = dm > 0.0 ? std::acos(x) : -std::acos(x);
  const double fitted = watch.Check((w - dm) / (1.0 / cos1 - 1.0 / cos2));
  if (watch.Faulted()) return false;
  *cone = fitted;
  return true;
}

int32_t AlignOnOneStar(Mount& mount, AnglePair sky, AnglePair axes) {
  if (!IsFinite(sky) || !IsFinite(axes)) return InvalidParameter;
  mount.ResetTransform();
  const AnglePair nominal = NominalAxes(mount, sky);
  const PointingSnapshot terms = mount.pointing.Load();
  StoreTerms(mount, nominal.lat - axes.lat, terms.coneError);
  // Turn the axis-0 angle of the nominal frame by the measured difference.
  const double d = nominal.lon - axes.lon;
  const double cosD = std::cos(d);
  const double sinD = std::sin(d);
  Matrix3 turned(1.0);
  turned.at(0, 0) = cosD;
  turned.at(0, 1) = sinD;
  turned.at(1, 0) = -sinD;
  turned.at(1, 1) = cosD;
  turned.MultiplyInPlace(terms.skyToAxes);
  Matrix3 inverse = turned;
  if (inverse.Invert() != 0) {
    StoreMatrices(mount, turned, turned);
    return AlignFailed;
  }
  StoreMatrices(mount, turned, inverse);
  MarkAligned(mount, /*measureMisalignment=*/false);
  mount.StartTracking();
  return Ok;
}

int32_t AlignOnTwoStars(Mount& mount, StarObservation first, StarObservation second) {
  if (!IsFinite(first) || !IsFinite(second)) return InvalidParameter;
  FaultWatch watch;
  for (const StarObservation* o : {&first, &second}) CheckOperands(watch, *o);
  mount.ResetTransform();
  const AnglePair x1 = NominalAxes(mount, first.sky);
  const AnglePair x2 = NominalAxes(mount, second.sky);
  const PointingSnapshot terms = mount.pointing.Load();
  double index = watch.Check(((x1.lat - first.axes.lat) + (x2.lat - second.axes.lat)) / 2.0);
  if (watch.Faulted()) return FailOnFault(mount);
  if (!FitIndexError(terms, first, second, &index)) return AlignFailed;
  StoreTerms(mount, index, terms.coneError);
  // The axis-0 angles are used as measured.
  const AnglePair m1{first.axes.lon, first.axes.lat + index};
  const AnglePair m2{second.axes.lon, second.axes.lat + index};
  const Matrix3 axesColumns =
      ColumnsWithNormal(SphericalToUnitVector(m1), SphericalToUnitVector(m2), watch);
  const Matrix3 skyColumns = ColumnsWithNormal(SphericalToUnitVector(first.sky),
                                               SphericalToUnitVector(second.sky), watch);
  if (watch.Faulted()) return FailOnFault(mount);
  return SolveFramesAndFinish(mount, axesColumns, skyColumns, watch);
}

int32_t AlignOnThreeStars(Mount& mount, StarObservation first, StarObservation second,
                          StarObservation third) {
  if (!IsFinite(first) || !IsFinite(second) || !IsFinite(third)) return InvalidParameter;
  FaultWatch watch;
  for (const StarObservation* o : {&first, &second, &third}) CheckOperands(watch, *o);
  mount.ResetTransform();
  const AnglePair x1 = NominalAxes(mount, first.sky);
  const AnglePair x2 = NominalAxes(mount, second.sky);
  const AnglePair x3 = NominalAxes(mount, third.sky);
  PointingSnapshot terms = mount.pointing.Load();

  // Leverage of each pair with the third star on the cone term.
  const double secant3 = 1.0 / std::cos(third.axes.lat);
  const double leverage13 = watch.Check(std::fabs(1.0 / std::cos(x1.lat) - secant3));
  const double leverage23 = watch.Check(std::fabs(1.0 / std::cos(x2.lat) - secant3));
  const StarObservation& partner = ConePartner(first, second, third, leverage13, leverage23);
  double index = watch.Check(
      ((x1.lat - first.axes.lat) + (x2.lat - second.axes.lat) + (x3.lat - third.axes.lat)) / 3.0);
  if (watch.Faulted()) return FailOnFault(mount);

  // The two fits feed each other: the index fit uses the cone term so far,
  // the cone fit the index term so far. Both start from zero.
  terms.indexError = 0.0;
  terms.coneError = 0.0;
  double cone = 0.0;
  bool indexSettled = false;
  bool coneSettled = false;
  for (int round = 0; round < ALIGNMENT_FIT_ROUNDS && !(indexSettled && coneSettled); ++round) {
    if (!indexSettled) {
      if (!FitIndexError(terms, first, second, &index)) break;
      indexSettled = std::fabs(index - terms.indexError) < ALIGNMENT_FIT_TOLERANCE;
      terms.indexError = index;
    }
    if (!coneSettled) {
      if (!FitConeError(terms, partner, third, &cone)) break;
      coneSettled = std::fabs(cone - terms.coneError) < ALIGNMENT_FIT_TOLERANCE;
      terms.coneError = cone;
    }
  }
  // The terms as far as the rounds got stay, whether or not they settled.
  StoreTerms(mount, terms.indexError, terms.coneError);
  if (!indexSettled || !coneSettled) return AlignFailed;

  Vector3 measured[3];
  const StarObservation* stars[3] = {&first, &second, &third};
  for (int i = 0; i < 3; ++i) {
    const double a1 = stars[i]->axes.lat + terms.indexError;
    const double a0 = watch.Check(CorrectedAxisZero(terms, stars[i]->axes.lon, a1));
    measured[i] = SphericalToUnitVector({a0, a1});
  }
  if (watch.Faulted()) return FailOnFault(mount);
  const Matrix3 axesColumns = Columns(measured[0], measured[1], measured[2]);
  const Matrix3 skyColumns =
      Columns(SphericalToUnitVector(first.sky), SphericalToUnitVector(second.sky),
              SphericalToUnitVector(third.sky));
  return SolveFramesAndFinish(mount, axesColumns, skyColumns, watch);
}

}  // namespace scopemount
