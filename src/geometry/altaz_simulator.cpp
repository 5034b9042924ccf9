#include "geometry/altaz_simulator.h"

#include "geometry/simulator_tuning.h"

namespace scopemount {

AltAzSimulator::AltAzSimulator() : SimulatedMount(SLEW_SPEED, AnglePair{0.0, 0.0}) {
  modelId = MODEL;
  gotoTolerance = GOTO_TOLERANCE;
  approachOvershoot = SIMULATOR_APPROACH_OVERSHOOT;
  slewLeadTime = SIMULATOR_SLEW_LEAD_TIME;
  // The nominal matrices for the default latitude, before any site is set.
  AltAzMount::ResetTransform();
}

}  // namespace scopemount
