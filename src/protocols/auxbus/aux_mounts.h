// Models 0 and 1: the AUX-bus layer paired with the Alt/Az and the
// equatorial geometry. Axis 0 is the controller at 0x10, axis 1 the one at
// 0x11; neither axis is reversed.
#pragma once

#include <cstdint>

#include "geometry/altaz_mount.h"
#include "geometry/equatorial_mount.h"
#include "protocols/auxbus/aux_bus_mount.h"

namespace scopemount {

// The library's axis angles are the controllers' own.
class AuxAltAzMount final : public AuxBusMount, public AltAzMount {
 public:
  static constexpr int32_t MODEL = 0;
  static constexpr double GOTO_TOLERANCE = 0.0014544410433286077;    // 1/12 degree
  static constexpr double APPROACH_OVERSHOOT = 0.01308996938995747;  // 0.75 degree
  static constexpr double SLEW_LEAD_TIME = 10.0;                     // seconds

  AuxAltAzMount();
  // Opens the bus, then leaves both motors standing with fresh positions.
  int32_t OpenMount() override;
};

// The controller's zero of the hour-angle axis lies half a turn from ours;
// the declination axis is lifted into [-pi/2, 3pi/2) like SkyToAxes gives it.
class AuxEquatorialMount final : public AuxBusMount, public EquatorialMount {
 public:
  static constexpr int32_t MODEL = 1;
  static constexpr double GOTO_TOLERANCE = 0.0005817764173314432;    // 1/30 degree
  static constexpr double APPROACH_OVERSHOOT = 0.01308996938995747;  // 0.75 degree
  static constexpr double SLEW_LEAD_TIME = 6.0;                      // seconds

  AuxEquatorialMount();
  int32_t ReadAxisPosition(uint32_t axis) override;
  int32_t SlewAxisTo(uint32_t axis, double angle) override;
  int32_t SetAxisPosition(uint32_t axis, double angle) override;
  // Axis targets as this mount reads its hour-angle axis, in [-2pi, 0).
  int32_t GotoAxes(double angle0, double angle1) override;
};

}  // namespace scopemount
