// The hardware layer of the AUX-bus mounts: the two axis motor controllers
// share one serial bus and are addressed by packets (aux_packet.h).
//
// It turns the Mount hardware operations into bus commands, converts angles
// and rates to the controllers' fixed-point units, and keeps the bus's line
// discipline: RTS is raised while we transmit (unless the cable cannot
// loop it back), and our own bytes, which come back on the shared wire, are
// read and dropped before the reply.
//
// Never used alone: the concrete mounts pair it with a geometry layer.
#pragma once

#include <cstdint>

#include "mount/mount.h"
#include "protocols/auxbus/aux_packet.h"
#include "serial/serial_port.h"

namespace scopemount {

inline constexpr uint32_t AUX_BAUD_RATE = 19200;

// 2^24 counts per turn; rates in quarter arcseconds per second.
inline constexpr double AUX_COUNTS_PER_RADIAN = 8388608.0 / PI;
inline constexpr double AUX_RATE_UNITS_PER_RADIAN = 4.0 / PI * 180.0 * 60.0 * 60.0;

// Nominal speeds of the controllers' two GOTOs, for the workers' estimates.
inline constexpr double AUX_FAST_SLEW_RATE = 0.06981317007977318;   // 4 degrees/s
inline constexpr double AUX_SLOW_SLEW_RATE = 0.008726646259971648;  // 0.5 degree/s

inline constexpr double AUX_APPROACH_MARGIN = 0.03490658503988659;     // 2 degrees
inline constexpr double AUX_APPROACH_OVERSHOOT = 0.017453292519943295;  // 1 degree
inline constexpr double AUX_BACKLASH_RATE = 32.0 * SIDEREAL_RATE;

// How often BeginExchange looks at CTS, and the pause between looks.
inline constexpr int AUX_BUS_FREE_READINGS = 3;
inline constexpr uint32_t AUX_BUS_FREE_PAUSE_MS = 10;
// Noise the reply reader skips before it gives up on a line that never
// stops talking.
inline constexpr uint32_t AUX_MAX_SKIPPED_BYTES = 512;

class AuxBusMount : public SerialPort, public virtual Mount {
 public:
  ~AuxBusMount() override;

  int32_t ReadAxisPosition(uint32_t axis) override;
  int32_t ReadAxisStatus(uint32_t axis) override;
  int32_t OpenMount() override;
  int32_t SetAxisRate(uint32_t axis, double rate) override;
  int32_t SlewAxisTo(uint32_t axis, double angle) override;
  int32_t StopAxisMotor(uint32_t axis) override;
  int32_t SetAxisPosition(uint32_t axis, double angle) override;

  // One command to one axis's controller: Ok, or NoResponseAxis1/2 for any
  // failure on the bus. `reply` may be null; otherwise it holds
  // auxbus::REPLY_BUFFER_SIZE bytes.
  int32_t SendAuxCommand(uint32_t axis, uint8_t command, const uint8_t* data, uint32_t count,
                         uint8_t* reply);

  // Conversions with the axis's factors (truncating toward zero).
  int32_t AngleToCounts(uint32_t axis, double angle) const;
  double CountsToAngle(uint32_t axis, int32_t counts) const;
  int32_t RateToUnits(uint32_t axis, double rate) const;
  // Runs the axis at `rate` without touching its status; a zero rate stops
  // it in the direction it last ran.
  int32_t SetAxisRateRaw(uint32_t axis, double rate);

  double countsPerRadian[AXIS_COUNT]{AUX_COUNTS_PER_RADIAN, AUX_COUNTS_PER_RADIAN};
  double radiansPerCount[AXIS_COUNT]{1.0 / AUX_COUNTS_PER_RADIAN, 1.0 / AUX_COUNTS_PER_RADIAN};
  double rateFactor[AXIS_COUNT]{AUX_RATE_UNITS_PER_RADIAN, AUX_RATE_UNITS_PER_RADIAN};

 protected:
  AuxBusMount();

  // The slew shared by both mounts; `sentAngle` is what the controller is
  // told, which differs from `angle` where its zero lies elsewhere.
  int32_t SlewAxisToSending(uint32_t axis, double angle, double sentAngle);

  uint32_t BeginExchange() override;
  uint32_t AfterSend() override;
  uint32_t ReceiveReply(uint8_t* reply) override;
  void EndExchange() override;

 private:
  bool ReadByte(uint8_t* byte);
  int32_t SendAxisByte(uint32_t axis, uint8_t command, uint8_t value);
  int32_t SendAxisAngle(uint32_t axis, uint8_t command, double angle);
};

}  // namespace scopemount
