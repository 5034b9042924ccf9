// A simulator built askew: its axes stand off the nominal frame by a
// rotation (on the axis side), with pointing terms of its own. Alignment
// tests observe stars through it as a user centring them would.
#pragma once

#include <cmath>

#include "celestial/matrix3.h"
#include "geometry/altaz_simulator.h"
#include "geometry/equatorial_simulator.h"
#include "mount/mount.h"
#include "scopemount.h"
#include "support/test_mount.h"

namespace scopemount::testing {

// A rotation by `angle` about coordinate axis 0 (x), 1 (y) or 2 (z).
inline Matrix3 Rotation(int axis, double angle) {
  Matrix3 r(1.0);
  const int i = (axis + 1) % 3;
  const int j = (axis + 2) % 3;
  r.at(i, i) = r.at(j, j) = std::cos(angle);
  r.at(i, j) = -std::sin(angle);
  r.at(j, i) = std::sin(angle);
  return r;
}

// The simulator of `model` at `latitude`, nominal unless given a skew.
inline OwnedMount<Mount> Simulator(int32_t model, double latitude,
                                   const Matrix3& skew = Matrix3(1.0), double index = 0.0,
                                   double cone = 0.0) {
  OwnedMount<Mount> mount;
  if (model == SCOPE_MODEL_ALTAZ_SIMULATOR) {
    mount.reset(new AltAzSimulator);
  } else {
    mount.reset(new EquatorialSimulator);
  }
  mount->SetSite(latitude, 0.0);
  mount->pointing.Update([&](PointingSnapshot& model) {
    Matrix3 skyToAxes = skew;
    skyToAxes.MultiplyInPlace(model.skyToAxes);
    model.skyToAxes = skyToAxes;
    model.axesToSky = skyToAxes;
    model.axesToSky.Invert();
    model.indexError = index;
    model.coneError = cone;
  });
  return mount;
}

}  // namespace scopemount::testing
