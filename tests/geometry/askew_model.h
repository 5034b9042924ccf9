// A mount built askew: its axes stand off the nominal frame by a rotation
// (on the axis side), with pointing terms of its own. Alignment tests
// observe stars through it as a user centring them would.
#pragma once

#include <cmath>

#include "celestial/matrix3.h"
#include "mount/mount.h"

namespace scopemount::testing {

inline void MakeAskew(Mount& mount, const Matrix3& skew, double index = 0.0, double cone = 0.0) {
  mount.pointing.Update([&](PointingSnapshot& model) {
    Matrix3 skyToAxes = skew;
    skyToAxes.MultiplyInPlace(model.skyToAxes);
    model.skyToAxes = skyToAxes;
    model.axesToSky = skyToAxes;
    model.axesToSky.Invert();
    model.indexError = index;
    model.coneError = cone;
  });
}

// A rotation by `angle` about coordinate axis 0 (x), 1 (y) or 2 (z).
inline Matrix3 Rotation(int axis, double angle) {
  Matrix3 r(1.0);
  const int i = (axis + 1) % 3;
  const int j = (axis + 2) % 3;
  r.at(i, i) = std::cos(angle);
  r.at(i, j) = -std::sin(angle);
  r.at(j, i) = std::sin(angle);
  r.at(j, j) = std::cos(angle);
  return r;
}

}  // namespace scopemount::testing
