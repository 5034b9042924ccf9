// Grades shared by the star ratings of both geometries.
#pragma once

#include <cmath>
#include <cstdint>

#include "celestial/angles.h"

namespace scopemount {

// Rating method that grades a second star by how differently the two stars
// weigh the axis-0 pointing terms.
inline constexpr int32_t SECANT_GRADED_METHOD = 2;

// |1/cos(a) - 1/cos(b)|: how differently two axis-1 angles (altitudes or
// declinations) scale the axis-0 pointing terms. The farther apart, the
// better a pair separates those terms from a plain rotation.
inline double SecantDifference(double a, double b) {
  return std::fabs(1.0 / std::cos(a) - 1.0 / std::cos(b));
}

// A second star is graded the better the closer its secant is to the
// first star's (both terms then barely matter for the pair).
inline int32_t SecondStarSecantGrade(double secantDifference) {
  if (secantDifference < 0.1) return 5;
  if (secantDifference < 0.3) return 4;
  if (secantDifference < 0.6) return 3;
  if (secantDifference < 0.8) return 2;
  return 0;
}

// Grades `value` against falling thresholds for grades 5 down to 1
// (strictly above a threshold earns its grade); 0 below the last.
inline int32_t GradeAbove(double value, const double (&thresholds)[5]) {
  for (int32_t i = 0; i < 5; ++i) {
    if (value > thresholds[i]) return 5 - i;
  }
  return 0;
}

}  // namespace scopemount
