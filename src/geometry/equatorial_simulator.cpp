#include "geometry/equatorial_simulator.h"

#include "geometry/simulator_tuning.h"

namespace scopemount {

EquatorialSimulator::EquatorialSimulator()
    : motors_(*this, SLEW_SPEED, AnglePair{-HALF_PI, HALF_PI}) {
  modelId = MODEL;
  gotoTolerance = DEFAULT_GOTO_TOLERANCE;
  approachOvershoot = SIMULATOR_APPROACH_OVERSHOOT;
  slewLeadTime = SIMULATOR_SLEW_LEAD_TIME;
  // The nominal matrices for the default latitude, before any site is set.
  EquatorialMount::ResetTransform();
}

int32_t EquatorialSimulator::ReadAxisPosition(uint32_t axis) {
  return motors_.ReadPosition(axis);
}

int32_t EquatorialSimulator::ReadAxisStatus(uint32_t axis) { return motors_.ReadStatus(axis); }

int32_t EquatorialSimulator::SetAxisRate(uint32_t axis, double rate) {
  return motors_.SetRate(axis, rate);
}

int32_t EquatorialSimulator::SlewAxisTo(uint32_t axis, double angle) {
  if (axis == 1 && angle < MIN_DECLINATION_AXIS_ANGLE) angle += TWO_PI;
  return motors_.SlewTo(axis, angle);
}

int32_t EquatorialSimulator::StopAxisMotor(uint32_t axis) { return motors_.Stop(axis); }

int32_t EquatorialSimulator::SetAxisPosition(uint32_t axis, double angle) {
  return motors_.SetPosition(axis, angle);
}

int32_t EquatorialSimulator::MoveAxis(uint32_t axis, double rate) {
  StopAxisMotor(axis);
  return EquatorialMount::MoveAxis(axis, rate);
}

int32_t EquatorialSimulator::SetExtraMode(int32_t) { return Ok; }

}  // namespace scopemount
