#include "protocols/motorcontroller/motor_controller_equatorial_mount.h"

namespace scopemount {

MotorControllerEquatorialMount::MotorControllerEquatorialMount() {
  // RTS stays high until the line check at opening drops it.
  SetRts();
  noHandshake = 1;
  modelId = MODEL;
  isEquatorial = 1;
  gotoTolerance = GOTO_TOLERANCE;
  approachOvershoot = APPROACH_OVERSHOOT;
  slewLeadTime = SLEW_LEAD_TIME;
  // The nominal matrices for the default latitude, before any site is set.
  EquatorialMount::ResetTransform();
}

int32_t MotorControllerEquatorialMount::SlewAxisTo(uint32_t axis, double angle) {
  if (axis == 1 && angle < MIN_DECLINATION_AXIS_ANGLE) angle += TWO_PI;
  return MotorControllerMount::SlewAxisTo(axis, angle);
}

uint32_t MotorControllerEquatorialMount::BeginExchange() {
  SetRts();
  return 1;
}

double MotorControllerEquatorialMount::ControllerAngleOffset(uint32_t axis) const {
  return axis == 0 ? HALF_PI : 0.0;
}

// Failures here are not reported: a controller that cannot be initialised
// still answers the commands that follow, or fails them itself.
int32_t MotorControllerEquatorialMount::InitialiseAxes() {
  const double home[AXIS_COUNT] = {-HALF_PI, HALF_PI};
  uint8_t reply[motorcontroller::REPLY_BUFFER_SIZE];
  for (uint32_t axis = 0; axis < AXIS_COUNT; ++axis) {
    ReadAxisStatus(axis);
    if ((axisStatus[axis] & AXIS_NOT_INITIALISED) != 0) SetAxisPosition(axis, home[axis]);
  }
  for (uint32_t axis = 0; axis < AXIS_COUNT; ++axis) {
    SendCommand(axis, motorcontroller::INITIALISE_AXIS, reply);
  }
  southernHemisphere = latitude < 0.0 ? 1 : 0;
  return Ok;
}

}  // namespace scopemount
