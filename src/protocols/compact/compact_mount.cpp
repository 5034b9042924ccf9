#include "protocols/compact/compact_mount.h"

#include <cmath>
#include <cstring>

#include "celestial/angles.h"
#include "platform/clock.h"
#include "protocols/compact/compact_protocol.h"

namespace scopemount {

namespace {

// Slew tuning of the compact boards.
constexpr double COMPACT_GOTO_TOLERANCE = 0.0014544410433286077;  // 1/12 degree
constexpr double COMPACT_SLEW_LEAD_TIME = 12.0;                   // s

// Axis 1 has no GOTO status: its GOTO has ended when two readings more than
// this far apart find it at the same place.
constexpr uint32_t ALTITUDE_STANDSTILL_MS = 1000;
// The board takes its start-up settings before it is told the step.
constexpr uint32_t START_UP_PAUSE_MS = 50;
constexpr double START_UP_STEP_ANGLE = 0.03490658503988659;  // 2 degrees

int32_t NoResponseOf(uint32_t axis) { return axis == 0 ? NoResponseAxis1 : NoResponseAxis2; }

// The board counts one revolution upward from 0. An azimuth offset can be
// up to 3 pi, so one added turn may not be enough to bring a target there.
double OnBoardRevolution(double angle) {
  const double turned = std::fmod(angle, TWO_PI);
  return turned < 0.0 ? turned + TWO_PI : turned;
}

}  // namespace

CompactMount::CompactMount() {
  SetBaudRate(compact::BAUD_RATE);
  gotoTolerance = COMPACT_GOTO_TOLERANCE;
  approachMargin = 0.0;
  approachOvershoot = 0.0;
  slewLeadTime = COMPACT_SLEW_LEAD_TIME;
}

CompactMount::~CompactMount() = default;

void CompactMount::SetGearing(uint32_t counts) {
  countsPerRevolution = counts;
  for (uint32_t axis = 0; axis < AXIS_COUNT; ++axis) {
    // Halved in integers before dividing, as these mounts were calibrated:
    // for an odd count, angles go to counts a hair short of the way back.
    countsPerRadian[axis] = static_cast<double>(counts / 2) / PI;
    radiansPerCount[axis] = TWO_PI / static_cast<double>(counts);
    rateFactor[axis] = 5.0 * static_cast<double>(counts) / PI;
  }
}

// --- The line ---------------------------------------------------------------

uint32_t CompactMount::BeginExchange() {
  SetRts();
  return 1;
}

uint32_t CompactMount::ReceiveReply(uint8_t* reply) {
  const uint32_t length = expectedReplyLength.load();
  if (length == 0) return EXCHANGE_OK;
  uint8_t received[compact::LONGEST_REPLY] = {};
  const uint32_t wanted = length < compact::LONGEST_REPLY ? length : compact::LONGEST_REPLY;
  if (Read(received, wanted) == 0) return 1;
  if (reply != nullptr) std::memcpy(reply, received, wanted);
  return EXCHANGE_OK;
}

int32_t CompactMount::SendCompactCommand(uint32_t axis, const uint8_t* bytes, uint32_t count,
                                         uint8_t* reply, uint32_t replyLength) {
  std::lock_guard lock(commandMutex_);
  expectedReplyLength = replyLength;
  return Exchange(bytes, count, reply) == EXCHANGE_OK ? Ok : NoResponseOf(axis);
}

int32_t CompactMount::SendCode(uint32_t axis, uint8_t code, uint8_t* reply, uint32_t replyLength) {
  return SendCompactCommand(axis, &code, 1, reply, replyLength);
}

int32_t CompactMount::SendNumber(uint32_t axis, uint8_t code, uint32_t number) {
  uint8_t command[compact::LONGEST_COMMAND];
  const uint32_t length = compact::EncodeNumberCommand(code, number, command);
  return SendCompactCommand(axis, command, length, nullptr, 0);
}

// --- Conversions --------------------------------------------------------------

uint32_t CompactMount::CountOf(uint32_t axis, double angle) const {
  return compact::WireNumber(std::trunc(angle * countsPerRadian[axis]));
}

// --- Axis operations ------------------------------------------------------------

int32_t CompactMount::ReadCount(uint32_t axis, uint32_t* count) {
  uint8_t reply[compact::LONGEST_REPLY] = {};
  const int32_t result = SendCode(axis, compact::CommandFor(compact::READ_POSITION, axis), reply,
                                  compact::POSITION_REPLY_LENGTH);
  if (result == Ok) *count = compact::DecodeNumber(reply);
  return result;
}

int32_t CompactMount::ReadAxisPosition(uint32_t axis) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  uint32_t count = 0;
  const int32_t result = ReadCount(axis, &count);
  if (result != Ok) return result;
  double angle = static_cast<double>(count) * radiansPerCount[axis];
  if (axis == 0) angle += azimuthOffset;
  axisPosition[axis] = NormalizeAngle(angle);
  return Ok;
}

int32_t CompactMount::SetAxisPosition(uint32_t axis, double angle) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  if (angle < 0.0) angle += TWO_PI;
  if (axis == 1) return SendNumber(1, compact::LOAD_ALTITUDE, CountOf(1, OnBoardRevolution(angle)));
  // The board's azimuth count stays; the declared azimuth is an offset.
  uint32_t count = 0;
  const int32_t result = ReadCount(0, &count);
  if (result != Ok) return result;
  azimuthOffset = angle - NormalizeAngle(static_cast<double>(count) * radiansPerCount[0]);
  return Ok;
}

int32_t CompactMount::SlewAxisTo(uint32_t axis, double angle) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  axisTarget[axis] = angle;
  axisStatus[axis] = AXIS_SLEWING | AXIS_HIGH_SPEED;
  axisRate[axis] = compact::GOTO_SPEED;
  if (axis == 0) angle -= azimuthOffset;
  angle = OnBoardRevolution(angle);
  if (axis == 1) {
    ReadAxisPosition(1);
    lastAltitudePosition = axisPosition[1].load();
    lastAltitudeCheckTick = platform::TickCount();
  }
  lastRateDirection = 0;
  return SendNumber(axis, compact::CommandFor(compact::GOTO_COUNT, axis), CountOf(axis, angle));
}

int32_t CompactMount::EndGotoStatusOfAxis0() {
  uint8_t reply[compact::LONGEST_REPLY] = {};
  const int32_t result =
      SendCode(0, compact::READ_GOTO_STATUS, reply, compact::STATUS_REPLY_LENGTH);
  if (result != Ok) return result;
  if (reply[0] == compact::GOTO_ENDED) axisStatus[0].fetch_and(~AXIS_SLEWING);
  return Ok;
}

int32_t CompactMount::EndGotoStatusOfAxis1() {
  const uint32_t now = platform::TickCount();
  if (now - lastAltitudeCheckTick <= ALTITUDE_STANDSTILL_MS) return Ok;
  const int32_t result = ReadAxisPosition(1);
  if (result != Ok) return result;
  const double position = axisPosition[1];
  if (position == lastAltitudePosition) {
    axisStatus[1].fetch_and(~AXIS_SLEWING);
  } else {
    lastAltitudePosition = position;
    lastAltitudeCheckTick = now;
  }
  return Ok;
}

int32_t CompactMount::ReadAxisStatus(uint32_t axis) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  // The board is asked only while a GOTO runs.
  if ((axisStatus[axis] & AXIS_SLEWING) == 0) return Ok;
  return axis == 0 ? EndGotoStatusOfAxis0() : EndGotoStatusOfAxis1();
}

int32_t CompactMount::RunAxis(uint32_t axis, double rate) {
  const double scaled = std::isfinite(rate) ? std::trunc(rate * rateFactor[axis]) : 0.0;
  uint8_t code = compact::RUN_POSITIVE;
  uint32_t number = 0;
  if (scaled > 0.0) {
    number = compact::WireNumber(scaled);
    lastRateDirection = 0;
  } else if (scaled < 0.0) {
    code = compact::RUN_NEGATIVE;
    number = compact::WireNumber(-scaled);
    lastRateDirection = 1;
  } else if (lastRateDirection == 1) {
    // Standing still keeps the direction of the last run.
    code = compact::RUN_NEGATIVE;
  }
  return SendNumber(axis, compact::CommandFor(code, axis), number);
}

int32_t CompactMount::SetAxisRate(uint32_t axis, double rate) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  NoteAxisRunning(axis, rate);
  return RunAxis(axis, rate);
}

int32_t CompactMount::StopAxisMotor(uint32_t axis) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  const int32_t result = (axisStatus[axis] & AXIS_SLEWING) != 0
                             ? SendCode(axis, compact::CommandFor(compact::STOP_GOTO, axis))
                             : RunAxis(axis, 0.0);
  if (result != Ok) return result;
  axisStatus[axis] = AXIS_STOPPED;
  return Ok;
}

int32_t CompactMount::OpenMount() {
  if (ReadAxisPosition(0) != Ok) return NoResponseAxis1;
  if (ReadAxisPosition(1) != Ok) return NoResponseAxis2;
  SendNumber(0, compact::SET_REVOLUTION, countsPerRevolution);
  SendNumber(1, compact::CommandFor(compact::SET_REVOLUTION, 1), countsPerRevolution);
  int32_t result = SendNumber(0, compact::START_UP_COUNT, CountOf(0, 0.0));
  if (result != Ok) return result;
  result = SendNumber(1, compact::CommandFor(compact::START_UP_COUNT, 1), 0);
  if (result != Ok) return result;
  platform::Sleep(START_UP_PAUSE_MS);
  SendNumber(0, compact::START_UP_STEP, CountOf(0, START_UP_STEP_ANGLE));
  return Ok;
}

}  // namespace scopemount
