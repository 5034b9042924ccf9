// Model 7: an Alt/Az mount with software motors in place of a controller,
// so the whole library runs end to end with no mount attached.
#pragma once

#include <cstdint>

#include "geometry/altaz_mount.h"
#include "geometry/simulated_motors.h"

namespace scopemount {

class AltAzSimulator final : public AltAzMount {
 public:
  static constexpr int32_t MODEL = 7;
  static constexpr double SLEW_SPEED = 0.13962634015954636;       // 8 degrees/s
  static constexpr double GOTO_TOLERANCE = 0.0008726646259971648;  // 0.05 degree

  // Stands at azimuth 0 (north), altitude 0.
  AltAzSimulator();

  int32_t ReadAxisPosition(uint32_t axis) override;
  int32_t ReadAxisStatus(uint32_t axis) override;
  int32_t SetAxisRate(uint32_t axis, double rate) override;
  int32_t SlewAxisTo(uint32_t axis, double angle) override;
  int32_t StopAxisMotor(uint32_t axis) override;
  int32_t SetAxisPosition(uint32_t axis, double angle) override;
  // A manual motion starts from a standing axis.
  int32_t MoveAxis(uint32_t axis, double rate) override;

 private:
  SimulatedMotors motors_;
};

}  // namespace scopemount
