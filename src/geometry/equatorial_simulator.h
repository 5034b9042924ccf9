// Model 6: an equatorial mount with software motors in place of a
// controller, so the whole library runs end to end with no mount attached.
#pragma once

#include <cstdint>

#include "geometry/equatorial_mount.h"
#include "geometry/simulated_motors.h"

namespace scopemount {

class EquatorialSimulator final : public EquatorialMount {
 public:
  static constexpr int32_t MODEL = 6;
  static constexpr double SLEW_SPEED = 0.06981317007977318;  // 4 degrees/s

  // Stands at the equatorial home: axis 0 at -pi/2, axis 1 on the pole.
  EquatorialSimulator();

  int32_t ReadAxisPosition(uint32_t axis) override;
  int32_t ReadAxisStatus(uint32_t axis) override;
  int32_t SetAxisRate(uint32_t axis, double rate) override;
  // Targets of the declination axis below -pi/2 are taken a turn higher,
  // where the mirrored solutions live.
  int32_t SlewAxisTo(uint32_t axis, double angle) override;
  int32_t StopAxisMotor(uint32_t axis) override;
  int32_t SetAxisPosition(uint32_t axis, double angle) override;
  // A manual motion starts from a standing axis.
  int32_t MoveAxis(uint32_t axis, double rate) override;
  // The simulator has no extra mode; accepted and ignored.
  int32_t SetExtraMode(int32_t value) override;

 private:
  SimulatedMotors motors_;
};

}  // namespace scopemount
