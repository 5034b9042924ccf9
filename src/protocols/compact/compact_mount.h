// The compact mounts' hardware layer: the Mount axis operations over the
// compact board's single-byte commands.
//
// The board knows nothing of a declared azimuth: it is kept here as an
// offset added to the board's axis-0 angle. Only axis 0 reports the end of
// a GOTO; axis 1's GOTO ends when its position stands still between two
// checks more than a second apart. The axis status words are the ones this
// layer writes (2 or 10 running, 20 GOTO, 1 stopped, 16 after a finished
// GOTO), never read from the board.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>

#include "mount/mount.h"
#include "serial/serial_port.h"

namespace scopemount {

class CompactMount : public SerialPort, public virtual Mount {
 public:
  ~CompactMount() override;

  int32_t ReadAxisPosition(uint32_t axis) override;
  int32_t ReadAxisStatus(uint32_t axis) override;
  int32_t OpenMount() override;
  int32_t SetAxisRate(uint32_t axis, double rate) override;
  int32_t SlewAxisTo(uint32_t axis, double angle) override;
  int32_t StopAxisMotor(uint32_t axis) override;
  int32_t SetAxisPosition(uint32_t axis, double angle) override;

  // Conversions, set by the concrete class (SetGearing).
  double countsPerRadian[AXIS_COUNT]{0.0, 0.0};
  double radiansPerCount[AXIS_COUNT]{0.0, 0.0};
  // From rad/s to the number of a run command: ten times counts per second.
  double rateFactor[AXIS_COUNT]{0.0, 0.0};
  uint32_t countsPerRevolution = 0;

  // Reply bytes the exchange in progress reads (0: none).
  std::atomic<uint32_t> expectedReplyLength{0};
  // 1 when the last run command went negative: a zero rate keeps it.
  std::atomic<uint32_t> lastRateDirection{0};
  // Axis 1's standstill test.
  std::atomic<double> lastAltitudePosition{0.0};
  std::atomic<uint32_t> lastAltitudeCheckTick{0};
  // Radians added to the board's axis-0 angle (the declared azimuth).
  std::atomic<double> azimuthOffset{0.0};

 protected:
  // Opens the port at the board's rate and sets the slew tuning.
  CompactMount();
  // Loads the conversion pairs for a gear of `counts` per revolution.
  void SetGearing(uint32_t counts);

  // RTS goes high with the first command and stays so.
  uint32_t BeginExchange() override;
  // Reads expectedReplyLength bytes in one read; 1 when none came. A short
  // reply is taken as it is, its missing bytes zero.
  uint32_t ReceiveReply(uint8_t* reply) override;

 private:
  // One command: 0, or NoResponseAxis1/NoResponseAxis2 by axis on any
  // failure of the exchange.
  int32_t SendCompactCommand(uint32_t axis, const uint8_t* bytes, uint32_t count,
                             uint8_t* reply, uint32_t replyLength);
  int32_t SendCode(uint32_t axis, uint8_t code, uint8_t* reply = nullptr,
                   uint32_t replyLength = 0);
  int32_t SendNumber(uint32_t axis, uint8_t code, uint32_t number);
  // The board's raw count of an axis.
  int32_t ReadCount(uint32_t axis, uint32_t* count);
  int32_t RunAxis(uint32_t axis, double rate);
  int32_t EndGotoStatusOfAxis0();
  int32_t EndGotoStatusOfAxis1();
  uint32_t CountOf(uint32_t axis, double angle) const;

  // Setting expectedReplyLength and exchanging is one step, so a worker's
  // command and a status poll on the host's thread never swap lengths.
  std::mutex commandMutex_;
};

}  // namespace scopemount
