// Loading a geometry's nominal matrices into the pointing model.
#pragma once

#include "celestial/matrix3.h"
#include "mount/pointing_model.h"

namespace scopemount {

// Makes `skyToAxes` and its inverse the model's matrices; the pointing
// terms stay. The nominal matrices are rotations, so the inverse exists.
inline void LoadNominalTransform(PointingModel& pointing, const Matrix3& skyToAxes) {
  Matrix3 axesToSky = skyToAxes;
  axesToSky.Invert();
  pointing.Update([&](PointingSnapshot& model) {
    model.skyToAxes = skyToAxes;
    model.axesToSky = axesToSky;
  });
}

}  // namespace scopemount
