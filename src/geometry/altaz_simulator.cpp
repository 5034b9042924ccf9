#include "geometry/altaz_simulator.h"

#include "geometry/simulator_tuning.h"

namespace scopemount {

AltAzSimulator::AltAzSimulator() : motors_(*this, SLEW_SPEED, AnglePair{0.0, 0.0}) {
  modelId = MODEL;
  gotoTolerance = GOTO_TOLERANCE;
  approachOvershoot = SIMULATOR_APPROACH_OVERSHOOT;
  slewLeadTime = SIMULATOR_SLEW_LEAD_TIME;
  // The nominal matrices for the default latitude, before any site is set.
  AltAzMount::ResetTransform();
}

int32_t AltAzSimulator::ReadAxisPosition(uint32_t axis) { return motors_.ReadPosition(axis); }
int32_t AltAzSimulator::ReadAxisStatus(uint32_t axis) { return motors_.ReadStatus(axis); }

int32_t AltAzSimulator::SetAxisRate(uint32_t axis, double rate) {
  return motors_.SetRate(axis, rate);
}

int32_t AltAzSimulator::SlewAxisTo(uint32_t axis, double angle) {
  return motors_.SlewTo(axis, angle);
}

int32_t AltAzSimulator::StopAxisMotor(uint32_t axis) { return motors_.Stop(axis); }

int32_t AltAzSimulator::SetAxisPosition(uint32_t axis, double angle) {
  return motors_.SetPosition(axis, angle);
}

int32_t AltAzSimulator::MoveAxis(uint32_t axis, double rate) {
  StopAxisMotor(axis);
  return AltAzMount::MoveAxis(axis, rate);
}

}  // namespace scopemount
