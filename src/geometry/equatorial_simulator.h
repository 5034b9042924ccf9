// Model 6: an equatorial mount with software motors in place of a
// controller, so the whole library runs end to end with no mount attached.
#pragma once

#include <cstdint>

#include "geometry/equatorial_mount.h"
#include "geometry/simulated_mount.h"

namespace scopemount {

class EquatorialSimulator final : public SimulatedMount<EquatorialMount> {
 public:
  static constexpr int32_t MODEL = 6;
  static constexpr double SLEW_SPEED = 0.06981317007977318;  // 4 degrees/s

  // Stands at the equatorial home: axis 0 at -pi/2, axis 1 on the pole.
  EquatorialSimulator();

  // Targets of the declination axis below -pi/2 are taken a turn higher,
  // where the mirrored solutions live.
  int32_t SlewAxisTo(uint32_t axis, double angle) override;
  // The simulator has no extra mode; accepted and ignored.
  int32_t SetExtraMode(int32_t value) override;
};

}  // namespace scopemount
