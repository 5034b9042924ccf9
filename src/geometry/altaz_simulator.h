// Model 7: an Alt/Az mount with software motors in place of a controller,
// so the whole library runs end to end with no mount attached.
#pragma once

#include <cstdint>

#include "geometry/altaz_mount.h"
#include "geometry/simulated_mount.h"

namespace scopemount {

class AltAzSimulator final : public SimulatedMount<AltAzMount> {
 public:
  static constexpr int32_t MODEL = 7;
  static constexpr double SLEW_SPEED = 0.13962634015954636;       // 8 degrees/s
  static constexpr double GOTO_TOLERANCE = 0.0008726646259971648;  // 0.05 degree

  // Stands at azimuth 0 (north), altitude 0.
  AltAzSimulator();
};

}  // namespace scopemount
