// Models 2 and 5: an Alt/Az mount on a motor controller. The cable returns
// RTS on CTS, so a command waits briefly for another talker's CTS to drop
// and raises RTS while it talks; the azimuth axis takes the short way round.
#pragma once

#include <cstdint>

#include "geometry/altaz_mount.h"
#include "protocols/motorcontroller/motor_controller_mount.h"

namespace scopemount {

class MotorControllerAltAzMount final : public MotorControllerMount, public AltAzMount {
 public:
  static constexpr int32_t MODEL = 2;
  static constexpr double GOTO_TOLERANCE = 0.0014544410433286077;      // 1/12 degree
  static constexpr double APPROACH_OVERSHOOT = 0.01308996938995747;    // 0.75 degree
  static constexpr double SLEW_LEAD_TIME = 0.0;
  // How often, and how long apart, a command looks for CTS to drop.
  static constexpr int CTS_WAITS = 2;
  static constexpr uint32_t CTS_WAIT_MS = 10;

  MotorControllerAltAzMount();

  // Keeps the azimuth target within half a turn of where the axis stands,
  // so it may lie up to one turn outside (-pi, pi].
  int32_t SkyToAxes(AnglePair* sky, AnglePair* axes, int applyTerms) override;

 protected:
  uint32_t BeginExchange() override;
  void EndExchange() override;
};

}  // namespace scopemount
