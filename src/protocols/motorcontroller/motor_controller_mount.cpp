#include "protocols/motorcontroller/motor_controller_mount.h"

#include <cmath>

#include "platform/clock.h"

namespace scopemount {

using namespace motorcontroller;

namespace {

int32_t NoResponse(uint32_t axis) { return axis == 0 ? NoResponseAxis1 : NoResponseAxis2; }

// Truncation toward zero into the range the wire can carry; a value that
// is not finite (constants never read) becomes the range's end.
int64_t TruncateToWire(double value) {
  constexpr double limit = static_cast<double>(WIRE_NUMBER_MASK);
  if (!(value < limit)) return WIRE_NUMBER_MASK;
  if (!(value > -limit)) return -static_cast<int64_t>(WIRE_NUMBER_MASK);
  return static_cast<int64_t>(value);
}

bool IsLongPeriodBoard(uint32_t version) {
  for (uint32_t v : LONG_PERIOD_VERSIONS) {
    if (v == version) return true;
  }
  return false;
}

}  // namespace

MotorControllerMount::MotorControllerMount() { SetBaudRate(MOTOR_CONTROLLER_BAUD); }

// ---------------------------------------------------------------------------
// The line

uint32_t MotorControllerMount::ReceiveReply(uint8_t* reply) {
  uint8_t byte = 0;
  // Echoed command bytes and noise come before the start character.
  for (uint32_t dropped = 0;; ++dropped) {
    if (dropped > MAX_BYTES_BEFORE_REPLY || Read(&byte, 1) != 1) return EXCHANGE_NOT_SENT;
    if (byte == REPLY_DONE || byte == REPLY_REFUSED) break;
  }
  ClearRts();
  uint8_t buffer[REPLY_BUFFER_SIZE] = {byte};
  size_t length = 1;
  // A reply too long for the buffer counts as no reply.
  while (length < REPLY_BUFFER_SIZE - 1) {
    if (Read(&buffer[length], 1) != 1) return EXCHANGE_NOT_SENT;
    if (buffer[length++] == FRAME_END) {
      buffer[length] = 0;
      for (size_t i = 0; i <= length; ++i) reply[i] = buffer[i];
      return EXCHANGE_OK;
    }
  }
  return EXCHANGE_NOT_SENT;
}

int32_t MotorControllerMount::SendCommand(uint32_t axis, uint8_t letter, uint8_t* reply,
                                          uint32_t count, const uint8_t* data) {
  uint8_t frame[COMMAND_BUFFER_SIZE];
  const size_t length = BuildCommand(letter, axis, data, count, frame);
  reply[0] = 0;
  if (Exchange(frame, static_cast<uint32_t>(length), reply) != EXCHANGE_OK) {
    return NoResponse(axis);
  }
  return reply[0] == REPLY_REFUSED ? InvalidParameter : Ok;
}

int32_t MotorControllerMount::SendNumber(uint32_t axis, uint8_t letter, int64_t value) {
  uint8_t digits[NUMBER_DIGITS];
  EncodeHex24(value, digits);
  uint8_t reply[REPLY_BUFFER_SIZE];
  return SendCommand(axis, letter, reply, NUMBER_DIGITS, digits);
}

int32_t MotorControllerMount::SendMotionMode(uint32_t axis, uint8_t mode, bool positive) {
  uint8_t direction = positive ? DIRECTION_POSITIVE : DIRECTION_NEGATIVE;
  if (southernHemisphere == 1) direction |= SOUTHERN_BIT;
  const uint8_t data[MODE_DIGITS] = {mode, direction};
  uint8_t reply[REPLY_BUFFER_SIZE];
  return SendCommand(axis, SET_MOTION_MODE, reply, MODE_DIGITS, data);
}

void MotorControllerMount::DetectEcho() {
  if (!TakeLine()) return;
  SetRts();
  platform::Sleep(ECHO_SETTLE_MS);
  Purge();
  const uint8_t probe = COMMAND_START;
  uint8_t back = 0;
  const bool echoed = Write(&probe, 1) && Read(&back, 1) == 1 && back == COMMAND_START;
  echoesCommands = echoed ? 1 : 0;
  if (echoed) ClearRts();
  ReleaseLine();
}

// ---------------------------------------------------------------------------
// Opening: version, gear and timer constants

int32_t MotorControllerMount::ReadVersion() {
  uint8_t reply[REPLY_BUFFER_SIZE];
  const int32_t r = SendCommand(0, READ_VERSION, reply);
  if (r != Ok) return r;
  uint32_t v = 0;
  if (!DecodeHex(reply + 1, &v)) return InvalidParameter;
  // The digits arrive low byte first; the version reads them in the order sent.
  boardVersion = (v & 0xFF) << 16 | (v & 0xFF00) | ((v >> 16) & 0xFF);
  return Ok;
}

int32_t MotorControllerMount::ReadCountsPerRevolution(uint32_t axis) {
  uint8_t reply[REPLY_BUFFER_SIZE];
  const int32_t r = SendCommand(axis, READ_COUNTS_PER_REVOLUTION, reply);
  if (r != Ok) return r;
  uint32_t counts = 0;
  const bool decoded = DecodeHex(reply + 1, &counts);
  if (boardType == BOARD_TYPE_FIXED_GEAR_A) counts = FIXED_GEAR_A_COUNTS;
  if (boardType == BOARD_TYPE_FIXED_GEAR_B) counts = FIXED_GEAR_B_COUNTS;
  // A count of zero would make every conversion meaningless: kept out like
  // an undecodable reply.
  if (decoded && counts != 0) {
    countsPerRadian[axis] = counts / TWO_PI;
    radiansPerCount[axis] = TWO_PI / counts;
  }
  return Ok;
}

int32_t MotorControllerMount::ReadTimerFrequency() {
  uint8_t reply[REPLY_BUFFER_SIZE];
  const int32_t r = SendCommand(0, READ_TIMER_FREQUENCY, reply);
  if (r != Ok) return r;
  uint32_t frequency = 0;
  if (DecodeHex(reply + 1, &frequency)) timerFrequency[0] = frequency;
  for (uint32_t axis = 0; axis < AXIS_COUNT; ++axis) {
    periodFactor[axis] = timerFrequency[0] / countsPerRadian[axis];
  }
  return Ok;
}

int32_t MotorControllerMount::ReadHighSpeedRatio(uint32_t axis) {
  uint8_t reply[REPLY_BUFFER_SIZE];
  const int32_t r = SendCommand(axis, READ_HIGH_SPEED_RATIO, reply);
  if (r != Ok) return r;
  uint32_t ratio = 0;
  if (DecodeHex(reply + 1, &ratio)) highSpeedRatio[axis] = ratio;
  return Ok;
}

int32_t MotorControllerMount::ReadWormSteps(uint32_t axis) {
  uint8_t reply[REPLY_BUFFER_SIZE];
  const int32_t r = SendCommand(axis, READ_WORM_STEPS, reply);
  if (r != Ok) return r;
  uint32_t steps = 0;
  if (!DecodeHex(reply + 1, &steps)) return InvalidParameter;
  wormSteps[axis] = steps;
  return Ok;
}

void MotorControllerMount::ApplyBoardType() {
  boardType = boardVersion & 0xFF;
  if (boardType >= ECHOING_BOARD_TYPE) {
    echoesCommands = 1;
    useInstantStop = (boardType >= DECELERATING_BOARD_TYPES_FIRST &&
                      boardType <= DECELERATING_BOARD_TYPES_LAST) ? 0 : 1;
  }
  if (boardType >= BOARD_TYPE_FIXED_GEAR_A && boardType <= COARSE_BOARD_TYPE_LAST &&
      (boardVersion & 0xFFFF00) <= COARSE_BOARD_VERSION_LAST) {
    gotoTolerance = COARSE_GOTO_TOLERANCE;
  }
}

int32_t MotorControllerMount::OpenMount() {
  if (!IsOpen()) return NoResponseAxis1;
  noHandshake = CheckLine() == 0 ? 1 : 0;
  DetectEcho();
  int32_t r = ReadVersion();
  if (r != Ok) {
    platform::Sleep(VERSION_RETRY_PAUSE_MS);
    r = ReadVersion();
  }
  if (r != Ok) return r;
  ApplyBoardType();
  for (uint32_t axis = 0; axis < AXIS_COUNT && r == Ok; ++axis) r = ReadCountsPerRevolution(axis);
  if (r == Ok) r = ReadTimerFrequency();
  if (r != Ok) return r;
  timerFrequency[1] = timerFrequency[0];
  for (uint32_t axis = 0; axis < AXIS_COUNT && r == Ok; ++axis) r = ReadHighSpeedRatio(axis);
  for (uint32_t axis = 0; axis < AXIS_COUNT && r == Ok && echoesCommands == 0; ++axis) {
    r = ReadWormSteps(axis);
  }
  for (uint32_t axis = 0; axis < AXIS_COUNT && r == Ok; ++axis) r = ReadAxisPosition(axis);
  if (r == Ok) r = InitialiseAxes();
  if (r != Ok) return r;
  for (uint32_t axis = 0; axis < AXIS_COUNT; ++axis) {
    lowSpeedGotoLimit[axis] =
        static_cast<int32_t>(TruncateToWire(LOW_SPEED_GOTO_RATE * countsPerRadian[axis]));
    brakeSteps[axis] = BRAKE_STEPS;
  }
  return Ok;
}

int32_t MotorControllerMount::InitialiseAxes() {
  uint8_t reply[REPLY_BUFFER_SIZE];
  for (uint32_t axis = 0; axis < AXIS_COUNT; ++axis) {
    const int32_t r = SendCommand(axis, INITIALISE_AXIS, reply);
    if (r != Ok) return r;
  }
  return Ok;
}

// ---------------------------------------------------------------------------
// Position and status

double MotorControllerMount::ControllerAngleOffset(uint32_t) const { return 0.0; }

int32_t MotorControllerMount::CountsOf(uint32_t axis, double angle) const {
  return static_cast<int32_t>(TruncateToWire(angle * countsPerRadian[axis]));
}

int32_t MotorControllerMount::ReadAxisPosition(uint32_t axis) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  uint8_t reply[REPLY_BUFFER_SIZE];
  const int32_t r = SendCommand(axis, READ_POSITION, reply);
  if (r != Ok) return r;
  uint32_t value = 0;
  if (!DecodeHex(reply + 1, &value)) return InvalidParameter;
  const int32_t count = static_cast<int32_t>(value) - POSITION_OFFSET;
  axisPosition[axis] = count * radiansPerCount[axis] - ControllerAngleOffset(axis);
  return Ok;
}

int32_t MotorControllerMount::SetAxisPosition(uint32_t axis, double angle) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  const int32_t count = CountsOf(axis, angle + ControllerAngleOffset(axis));
  return SendNumber(axis, DECLARE_POSITION, static_cast<int64_t>(count) + POSITION_OFFSET);
}

int32_t MotorControllerMount::ReadAxisStatus(uint32_t axis) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  uint8_t reply[REPLY_BUFFER_SIZE];
  const int32_t r = SendCommand(axis, READ_STATUS, reply);
  if (r != Ok) return r;
  // A reply with fewer than three digits says nothing about the axis.
  for (size_t i = 1; i <= STATUS_DIGITS; ++i) {
    if (reply[i] == FRAME_END || reply[i] == 0) return InvalidParameter;
  }
  const uint8_t mode = reply[1];
  const uint8_t motion = reply[2];
  const uint8_t setup = reply[3];
  uint32_t status = AXIS_STOPPED;
  if ((motion & STATUS_RUNNING) != 0) {
    status = (mode & STATUS_RATE_MODE) != 0 ? AXIS_RUNNING : AXIS_SLEWING;
  }
  if ((mode & STATUS_NEGATIVE) == 0) status |= AXIS_POSITIVE;
  if ((mode & STATUS_HIGH_SPEED) != 0) status |= AXIS_HIGH_SPEED;
  if ((setup & STATUS_INITIALISED) == 0) status |= AXIS_NOT_INITIALISED;
  axisStatus[axis] = status;
  return Ok;
}

// ---------------------------------------------------------------------------
// Motion

int32_t MotorControllerMount::StopAxisMotor(uint32_t axis) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  uint8_t reply[REPLY_BUFFER_SIZE];
  return SendCommand(axis, useInstantStop == 1 ? STOP_INSTANTLY : STOP_MOTION, reply);
}

int32_t MotorControllerMount::SlewAxisTo(uint32_t axis, double angle) {
  if (!IsValidAxis(axis) || !std::isfinite(angle)) return InvalidParameter;
  const int32_t r = ReadAxisPosition(axis);
  if (r != Ok) return r;
  int32_t count = CountsOf(axis, angle - axisPosition[axis]);
  if (count == 0) return Ok;
  const bool positive = count > 0;
  if (!positive) count = -count;
  const uint8_t mode = count > lowSpeedGotoLimit[axis] ? MODE_HIGH_SPEED_GOTO : MODE_LOW_SPEED_GOTO;
  // Checked by the status polls that follow, not here.
  SendMotionMode(axis, mode, positive);
  SendNumber(axis, SET_GOTO_COUNT, count);
  SendNumber(axis, SET_BRAKE_STEPS, brakeSteps[axis]);
  uint8_t reply[REPLY_BUFFER_SIZE];
  SendCommand(axis, START_MOTION, reply);
  axisStatus[axis] = AXIS_SLEWING | (positive ? AXIS_POSITIVE : 0);
  mountState = STATE_SLEWING;
  return Ok;
}

uint32_t MotorControllerMount::StepPeriod(uint32_t axis, double speed) const {
  if (speed > HIGH_SPEED_THRESHOLD && highSpeedRatio[axis] != 0) speed /= highSpeedRatio[axis];
  int64_t period = TruncateToWire(1.0 / speed * periodFactor[axis]);
  if (IsLongPeriodBoard(boardVersion)) period -= LONG_PERIOD_CORRECTION;
  if (period < MIN_STEP_PERIOD) period = MIN_STEP_PERIOD;
  return static_cast<uint32_t>(period);
}

int32_t MotorControllerMount::SetAxisRate(uint32_t axis, double rate) {
  if (!IsValidAxis(axis) || std::isnan(rate)) return InvalidParameter;
  if (rate > MAX_CONTROLLER_RATE) rate = MAX_CONTROLLER_RATE;
  if (rate < -MAX_CONTROLLER_RATE) rate = -MAX_CONTROLLER_RATE;
  if (std::fabs(rate) <= MIN_CONTROLLER_RATE) return StopAxisMotor(axis);
  const int32_t r = PrepareAxisRate(axis, rate);
  if (r != Ok) return r;
  if (rate > 0.0) {
    axisDirection[axis] = 1;
    axisStatus[axis] |= AXIS_POSITIVE;
  } else {
    axisDirection[axis] = 0;
    axisStatus[axis] &= ~AXIS_POSITIVE;
  }
  SendNumber(axis, SET_STEP_PERIOD, StepPeriod(axis, std::fabs(rate)));
  uint8_t reply[REPLY_BUFFER_SIZE];
  SendCommand(axis, START_MOTION, reply);
  axisRate[axis] = rate;
  return Ok;
}

int32_t MotorControllerMount::StopAndWait(uint32_t axis) {
  int32_t r = StopAxisMotor(axis);
  if (r != Ok) return r;
  const uint32_t start = platform::TickCount();
  for (;;) {
    r = ReadAxisStatus(axis);
    if (r != Ok) return r;
    if ((axisStatus[axis] & AXIS_STOPPED) != 0) return Ok;
    if (platform::TickCount() - start >= STOP_WAIT_LIMIT_MS) return NoResponse(axis);
    platform::Sleep(STOP_POLL_PAUSE_MS);
  }
}

int32_t MotorControllerMount::PrepareAxisRate(uint32_t axis, double rate) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  int32_t r = ReadAxisStatus(axis);
  if (r != Ok) return r;
  const uint32_t status = axisStatus[axis];
  if ((status & AXIS_STOPPED) == 0) {
    const bool lowSpeedRate = (status & (AXIS_SLEWING | AXIS_HIGH_SPEED)) == 0;
    const bool sameDirection = (status & AXIS_POSITIVE) != 0 ? rate >= 0.0 : rate <= 0.0;
    // Running at a low rate the same way: only the period changes.
    if (lowSpeedRate && std::fabs(rate) < HIGH_SPEED_THRESHOLD && sameDirection) return Ok;
    r = StopAndWait(axis);
    if (r != Ok) return r;
  }
  const uint8_t mode =
      std::fabs(rate) > HIGH_SPEED_THRESHOLD ? MODE_HIGH_SPEED_RATE : MODE_LOW_SPEED_RATE;
  SendMotionMode(axis, mode, rate > 0.0);
  return Ok;
}

int32_t MotorControllerMount::ReadBothStanding(bool* standing) {
  *standing = true;
  for (uint32_t axis = 0; axis < AXIS_COUNT; ++axis) {
    const int32_t r = ReadAxisStatus(axis);
    if (r != Ok) return r;
    if ((axisStatus[axis] & AXIS_STOPPED) == 0) *standing = false;
  }
  return Ok;
}

// Stops both axes once and waits until they stand, giving up when the
// caller is told to (a newer request, a stop, a disconnect).
int32_t MotorControllerMount::PrepareSlew() {
  if (isEquatorial == 0) StopTracking();
  bool stopSent = false;
  const uint32_t start = platform::TickCount();
  for (;;) {
    bool standing = false;
    const int32_t r = ReadBothStanding(&standing);
    if (r != Ok) return r;
    if (!stopSent && !standing) {
      stopSent = true;
      for (uint32_t axis = 0; axis < AXIS_COUNT; ++axis) {
        const int32_t s = StopAxisMotor(axis);
        if (s != Ok) return s;
      }
    } else {
      platform::Sleep(STOP_POLL_PAUSE_MS);
    }
    if (axisRunFlag[0] == 0 || axisRunFlag[1] == 0 || abortRequest == 1 || releasing == 1) {
      return UserInterrupt;
    }
    if (standing) return Ok;
    if (platform::TickCount() - start >= STOP_WAIT_LIMIT_MS) return NoResponseAxis1;
  }
}

}  // namespace scopemount
