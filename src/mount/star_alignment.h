// Star alignment: fitting the pointing model (the two frame matrices and
// the index, cone and non-perpendicularity terms) to stars the user has
// centred, each given as its sky position and the axis angles it was seen at.
//
// One star turns the nominal model about axis 0 and shifts axis 1; two
// stars fit the index term and a full rotation; three stars fit the index
// and cone terms together and a general matrix.
//
// Every alignment starts from the nominal matrices and writes each term as
// it is fitted, so a failure (AlignFailed) leaves what the steps before it
// wrote: the nominal matrices, the terms fitted so far, and `aligned`,
// `alignmentQuality` and `misalignment` as they were. The one exception is
// a singular axis matrix, found after the new sky-to-axes matrix is stored.
// A floating-point fault reloads the nominal matrices.
#pragma once

#include <cstdint>

#include "celestial/angles.h"
#include "mount/mount.h"

namespace scopemount {

// A star as the host gave it, its angles in any range, reduced into the
// ranges a geometry's SkyToAxes gives: each into [-pi, pi], then the second
// axis into [minSecondAxis, minSecondAxis + 2 pi) (an equatorial mount's
// declination axis passes the pole, so its mirrored angles stay mirrored).
inline StarObservation ReducedObservation(StarObservation star, double minSecondAxis = -PI) {
  star.sky.lon = NormalizeAngle(star.sky.lon);
  star.sky.lat = NormalizeAngle(star.sky.lat);
  star.axes.lon = NormalizeAngle(star.axes.lon);
  star.axes.lat = NormalizeAngle(star.axes.lat);
  if (star.axes.lat < minSecondAxis) star.axes.lat += TWO_PI;
  return star;
}

// The convergence step of the three-star fit: one arcminute.
inline constexpr double ALIGNMENT_FIT_TOLERANCE = 0.0002908882086657216;
inline constexpr int ALIGNMENT_FIT_ROUNDS = 100;

// Refines the index term `index` so the two measured directions lie as far
// apart as the two stars; uses the cone and non-perpendicularity terms of
// `terms`. False when no index term matches the stars' separation.
bool FitIndexError(const PointingSnapshot& terms, const StarObservation& first,
                   const StarObservation& second, double* index);

// Computes the cone term `cone` that makes the two axis-0 angles as far
// apart as the stars require, with the index term of `terms`. False when
// the separation cannot be matched.
bool FitConeError(const PointingSnapshot& terms, const StarObservation& first,
                  const StarObservation& second, double* cone);

// The alignments behind Mount's AlignOneStar, AlignTwoStars and
// AlignThreeStars: Ok, AlignFailed, or InvalidParameter for a star that is
// not finite. The one-star alignment also starts tracking.
int32_t AlignOnOneStar(Mount& mount, AnglePair sky, AnglePair axes);
int32_t AlignOnTwoStars(Mount& mount, StarObservation first, StarObservation second);
int32_t AlignOnThreeStars(Mount& mount, StarObservation first, StarObservation second,
                          StarObservation third);

}  // namespace scopemount
