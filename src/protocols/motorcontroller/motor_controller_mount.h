// The motor-controller protocol layer: turns the Mount hardware operations
// into the controller's colon commands (motor_controller_codec.h), reads
// the gear and timer constants when the mount opens, and converts between
// axis angles in radians and motor counts.
//
// The controller holds the motion state; axisStatus and axisPosition mirror
// it after each read. Every command runs through SerialPort::Exchange, so
// commands of the caller's thread and of a worker interleave per command.
// Never used alone: the concrete classes join it with a geometry layer.
#pragma once

#include <cstdint>

#include "mount/mount.h"
#include "protocols/motorcontroller/motor_controller_codec.h"
#include "serial/serial_port.h"

namespace scopemount {

inline constexpr uint32_t MOTOR_CONTROLLER_BAUD = 9600;

// Rates beyond this are clamped (3.4 degrees per second).
inline constexpr double MAX_CONTROLLER_RATE = 0.059341194567807204;
// A rate this small stops the axis.
inline constexpr double MIN_CONTROLLER_RATE = SIDEREAL_RATE / 1000.0;
// Above this the controller runs in its high-speed mode.
inline constexpr double HIGH_SPEED_THRESHOLD = 128.0 * SIDEREAL_RATE;
// A GOTO shorter than one second at this rate uses the low-speed mode.
inline constexpr double LOW_SPEED_GOTO_RATE = 640.0 * SIDEREAL_RATE;
inline constexpr uint32_t BRAKE_STEPS = 3500;
inline constexpr uint32_t MIN_STEP_PERIOD = 6;
// Boards of these versions count a period three ticks long.
inline constexpr uint32_t LONG_PERIOD_VERSIONS[] = {0x010600, 0x010601};
inline constexpr uint32_t LONG_PERIOD_CORRECTION = 3;

// Version-dependent behaviour at opening.
inline constexpr uint32_t ECHOING_BOARD_TYPE = 0x80;
inline constexpr uint32_t DECELERATING_BOARD_TYPES_FIRST = 0x90;
inline constexpr uint32_t DECELERATING_BOARD_TYPES_LAST = 0x9F;
inline constexpr uint32_t BOARD_TYPE_FIXED_GEAR_A = 0x80;
inline constexpr uint32_t BOARD_TYPE_FIXED_GEAR_B = 0x82;
inline constexpr uint32_t FIXED_GEAR_A_COUNTS = 1452951;
inline constexpr uint32_t FIXED_GEAR_B_COUNTS = 2118424;
inline constexpr uint32_t COARSE_BOARD_TYPE_LAST = 0x82;
inline constexpr uint32_t COARSE_BOARD_VERSION_LAST = 0x010900;
inline constexpr double COARSE_GOTO_TOLERANCE = 0.0017453292519943296;  // 0.1 degree

// Pauses.
inline constexpr uint32_t VERSION_RETRY_PAUSE_MS = 200;
inline constexpr uint32_t STOP_POLL_PAUSE_MS = 100;
inline constexpr uint32_t ECHO_SETTLE_MS = 20;
// An axis that still reports motion this long after a stop is taken as not
// answering: the caller is never held for ever.
inline constexpr uint32_t STOP_WAIT_LIMIT_MS = 15000;
// Bytes dropped while waiting for a reply's start character before the
// line is taken as talking noise.
inline constexpr uint32_t MAX_BYTES_BEFORE_REPLY = 64;

// axisStatus flag of an axis the controller reports not initialised.
inline constexpr uint32_t AXIS_NOT_INITIALISED = 32;

class MotorControllerMount : public SerialPort, public virtual Mount {
 public:
  ~MotorControllerMount() override = default;

  int32_t ReadAxisPosition(uint32_t axis) override;
  int32_t ReadAxisStatus(uint32_t axis) override;
  int32_t PrepareSlew() override;
  int32_t PrepareAxisRate(uint32_t axis, double rate) override;
  int32_t OpenMount() override;
  int32_t SetAxisRate(uint32_t axis, double rate) override;
  int32_t SlewAxisTo(uint32_t axis, double angle) override;
  int32_t StopAxisMotor(uint32_t axis) override;
  int32_t SetAxisPosition(uint32_t axis, double angle) override;

  // The controller's constants, read by OpenMount; zero until then.
  uint32_t boardType = 0;
  double countsPerRadian[AXIS_COUNT] = {0.0, 0.0};
  double radiansPerCount[AXIS_COUNT] = {0.0, 0.0};
  double periodFactor[AXIS_COUNT] = {0.0, 0.0};
  uint32_t timerFrequency[AXIS_COUNT] = {0, 0};
  uint32_t wormSteps[AXIS_COUNT] = {0, 0};
  uint32_t highSpeedRatio[AXIS_COUNT] = {0, 0};
  uint32_t brakeSteps[AXIS_COUNT] = {0, 0};
  int32_t lowSpeedGotoLimit[AXIS_COUNT] = {0, 0};
  uint32_t echoesCommands = 0;
  uint32_t useInstantStop = 0;
  uint32_t southernHemisphere = 0;

 protected:
  // Opens the port and sets the protocol's rate.
  MotorControllerMount();

  uint32_t ReceiveReply(uint8_t* reply) override;
  // F to both axes; the first failure.
  virtual int32_t InitialiseAxes();
  // What the controller's angle adds to the library's on `axis`.
  virtual double ControllerAngleOffset(uint32_t axis) const;

  // One command: Ok, 100/101 by axis when nothing usable came back, 4 when
  // the controller refused it.
  int32_t SendCommand(uint32_t axis, uint8_t letter, uint8_t* reply, uint32_t count = 0,
                      const uint8_t* data = nullptr);
  int32_t SendNumber(uint32_t axis, uint8_t letter, int64_t value);
  int32_t SendMotionMode(uint32_t axis, uint8_t mode, bool positive);
  // Whether the line gives back what is sent.
  void DetectEcho();

 private:
  int32_t ReadVersion();
  int32_t ReadCountsPerRevolution(uint32_t axis);
  int32_t ReadTimerFrequency();
  int32_t ReadHighSpeedRatio(uint32_t axis);
  int32_t ReadWormSteps(uint32_t axis);
  void ApplyBoardType();
  // Stops `axis` and waits until it reports standing.
  int32_t StopAndWait(uint32_t axis);
  // Reads both axes; Ok with `standing` set when both report stopped.
  int32_t ReadBothStanding(bool* standing);
  uint32_t StepPeriod(uint32_t axis, double speed) const;
  int32_t CountsOf(uint32_t axis, double angle) const;
};

}  // namespace scopemount
