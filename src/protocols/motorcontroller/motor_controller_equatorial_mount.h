// Models 3 and 4: an equatorial mount on a motor controller. The
// controller counts the hour-angle axis a quarter turn ahead of the
// library (its zero count is the library's -pi/2), and a controller that
// reports its axes not initialised is taken to stand at the home position.
#pragma once

#include <cstdint>

#include "geometry/equatorial_mount.h"
#include "protocols/motorcontroller/motor_controller_mount.h"

namespace scopemount {

class MotorControllerEquatorialMount final : public MotorControllerMount, public EquatorialMount {
 public:
  static constexpr int32_t MODEL = 3;
  static constexpr double GOTO_TOLERANCE = 0.0005817764173314432;      // 1/30 degree
  static constexpr double APPROACH_OVERSHOOT = 0.005817764173314431;   // 1/3 degree
  static constexpr double SLEW_LEAD_TIME = 0.0;

  MotorControllerEquatorialMount();

  // Declination-axis targets below -pi/2 are taken a turn higher, where the
  // mirrored solutions live.
  int32_t SlewAxisTo(uint32_t axis, double angle) override;

 protected:
  uint32_t BeginExchange() override;
  int32_t InitialiseAxes() override;
  double ControllerAngleOffset(uint32_t axis) const override;
};

}  // namespace scopemount
