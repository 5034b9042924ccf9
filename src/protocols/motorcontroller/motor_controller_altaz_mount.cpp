#include "protocols/motorcontroller/motor_controller_altaz_mount.h"

#include "platform/clock.h"

namespace scopemount {

MotorControllerAltAzMount::MotorControllerAltAzMount() {
  modelId = MODEL;
  gotoTolerance = GOTO_TOLERANCE;
  approachOvershoot = APPROACH_OVERSHOOT;
  slewLeadTime = SLEW_LEAD_TIME;
  // The nominal matrices for the default latitude, before any site is set.
  AltAzMount::ResetTransform();
}

int32_t MotorControllerAltAzMount::SkyToAxes(AnglePair* sky, AnglePair* axes, int applyTerms) {
  const int32_t r = Mount::SkyToAxes(sky, axes, applyTerms);
  const double a = axes->lon;
  const double d = a - axisPosition[0];
  if (d > PI && a > 0.0) {
    axes->lon = a - TWO_PI;
  } else if (d < -PI && a < 0.0) {
    axes->lon = a + TWO_PI;
  }
  return r;
}

// A device that talks holds CTS high: wait a little for it, then talk
// anyway (the exchange goes ahead whatever this returns).
uint32_t MotorControllerAltAzMount::BeginExchange() {
  if (noHandshake == 0) {
    for (int waits = 0; IsCtsHigh(); ++waits) {
      if (waits == CTS_WAITS) return 0;
      platform::Sleep(CTS_WAIT_MS);
    }
  }
  SetRts();
  return 1;
}

void MotorControllerAltAzMount::EndExchange() { ClearRts(); }

}  // namespace scopemount
