#include "geometry/equatorial_simulator.h"

#include "geometry/simulator_tuning.h"

namespace scopemount {

EquatorialSimulator::EquatorialSimulator()
    : SimulatedMount(SLEW_SPEED, AnglePair{-HALF_PI, HALF_PI}) {
  modelId = MODEL;
  gotoTolerance = DEFAULT_GOTO_TOLERANCE;
  approachOvershoot = SIMULATOR_APPROACH_OVERSHOOT;
  slewLeadTime = SIMULATOR_SLEW_LEAD_TIME;
  // The nominal matrices for the default latitude, before any site is set.
  EquatorialMount::ResetTransform();
}

int32_t EquatorialSimulator::SlewAxisTo(uint32_t axis, double angle) {
  if (axis == 1 && angle < MIN_DECLINATION_AXIS_ANGLE) angle += TWO_PI;
  return SimulatedMount::SlewAxisTo(axis, angle);
}

int32_t EquatorialSimulator::SetExtraMode(int32_t) { return Ok; }

}  // namespace scopemount
