#include "protocols/auxbus/aux_bus_mount.h"

#include <cmath>
#include <cstring>

#include "platform/clock.h"

namespace scopemount {

using namespace auxbus;

namespace {

// Wire rates are 24-bit magnitudes of units x 256: faster requests are sent
// at the fastest rate the field holds rather than wrapped to a slow one.
constexpr int32_t MAX_RATE_UNITS = static_cast<int32_t>(FIELD_MASK) / RATE_WIRE_SHIFT;
constexpr double COUNTS_PER_TURN = 2.0 * COUNTS_PER_HALF_TURN;

}  // namespace

AuxBusMount::AuxBusMount() {
  SetBaudRate(AUX_BAUD_RATE);
  approachMargin = AUX_APPROACH_MARGIN;
  approachOvershoot = AUX_APPROACH_OVERSHOOT;
  limitSecondAxisTravel = 1;
  backlashRate = AUX_BACKLASH_RATE;
}

AuxBusMount::~AuxBusMount() = default;

// ---------------------------------------------------------------------------
// Conversions

// An angle far outside one turn (a declared position is not reduced first)
// keeps only the low 24 bits of its counts, as the field does.
int32_t AuxBusMount::AngleToCounts(uint32_t axis, double angle) const {
  if (!IsValidAxis(axis) || !std::isfinite(angle)) return 0;
  const double counts = std::fmod(std::trunc(angle * countsPerRadian[axis]), COUNTS_PER_TURN);
  return static_cast<int32_t>(counts);
}

double AuxBusMount::CountsToAngle(uint32_t axis, int32_t counts) const {
  if (!IsValidAxis(axis)) return 0.0;
  return counts * radiansPerCount[axis];
}

int32_t AuxBusMount::RateToUnits(uint32_t axis, double rate) const {
  if (!IsValidAxis(axis) || !std::isfinite(rate)) return 0;
  const double units = std::trunc(rate * rateFactor[axis]);
  if (units > MAX_RATE_UNITS) return MAX_RATE_UNITS;
  if (units < -MAX_RATE_UNITS) return -MAX_RATE_UNITS;
  return static_cast<int32_t>(units);
}

// ---------------------------------------------------------------------------
// Commands

int32_t AuxBusMount::SendAuxCommand(uint32_t axis, uint8_t command, const uint8_t* data,
                                    uint32_t count, uint8_t* reply) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  if (data == nullptr) count = 0;
  if (count > MAX_COMMAND_DATA) count = MAX_COMMAND_DATA;
  uint8_t packet[MAX_PACKET_SIZE];
  const size_t size = BuildPacket(HOST_ADDRESS, AXIS_ADDRESS[axis], command, data, count, packet);
  if (Exchange(packet, static_cast<uint32_t>(size), reply) == EXCHANGE_OK) return Ok;
  return axis == 0 ? NoResponseAxis1 : NoResponseAxis2;
}

int32_t AuxBusMount::SendAxisByte(uint32_t axis, uint8_t command, uint8_t value) {
  return SendAuxCommand(axis, command, &value, 1, nullptr);
}

int32_t AuxBusMount::SendAxisAngle(uint32_t axis, uint8_t command, double angle) {
  uint8_t data[3];
  PutBigEndian24(static_cast<uint32_t>(AngleToCounts(axis, angle)), data);
  return SendAuxCommand(axis, command, data, sizeof data, nullptr);
}

int32_t AuxBusMount::SetAxisRateRaw(uint32_t axis, double rate) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  const int32_t wire = RateToUnits(axis, rate) * RATE_WIRE_SHIFT;
  uint8_t command = CMD_RATE_POSITIVE;
  if (wire > 0) {
    axisDirection[axis] = 1;
  } else if (wire < 0) {
    axisDirection[axis] = 0;
    command = CMD_RATE_NEGATIVE;
  } else if (axisDirection[axis] == 0) {
    // A stop goes out in the direction the axis last ran.
    command = CMD_RATE_NEGATIVE;
  }
  uint8_t data[3];
  PutBigEndian24(static_cast<uint32_t>(wire < 0 ? -wire : wire), data);
  return SendAuxCommand(axis, command, data, sizeof data, nullptr);
}

// ---------------------------------------------------------------------------
// Mount hardware operations

int32_t AuxBusMount::ReadAxisPosition(uint32_t axis) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  uint8_t reply[REPLY_BUFFER_SIZE] = {};
  const int32_t result = SendAuxCommand(axis, CMD_GET_POSITION, nullptr, 0, reply);
  if (result == Ok) axisPosition[axis] = CountsToAngle(axis, GetSigned24(reply + DATA_OFFSET));
  return result;
}

// Only a slew has an end to ask about; anything else is known already.
int32_t AuxBusMount::ReadAxisStatus(uint32_t axis) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  if ((axisStatus[axis] & AXIS_SLEWING) == 0) return Ok;
  uint8_t reply[REPLY_BUFFER_SIZE] = {};
  const int32_t result = SendAuxCommand(axis, CMD_SLEW_DONE, nullptr, 0, reply);
  if (result != Ok) return result;
  if (reply[DATA_OFFSET] != 0) axisStatus[axis] = AXIS_STOPPED;
  return Ok;
}

int32_t AuxBusMount::OpenMount() {
  noHandshake = CheckLine() == 0 ? 1 : 0;
  for (uint32_t axis = 0; axis < AXIS_COUNT; ++axis) {
    uint8_t reply[REPLY_BUFFER_SIZE] = {};
    const int32_t result = SendAuxCommand(axis, CMD_GET_VERSION, nullptr, 0, reply);
    if (result != Ok) return result;
    boardVersion = reply[DATA_OFFSET] * 65536u + reply[DATA_OFFSET + 1] * 256u;
  }
  // Plain approach and both direction settings cleared, axis by axis.
  struct Setting {
    uint32_t axis;
    uint8_t command;
  };
  static constexpr Setting OPENING_SETTINGS[] = {
      {0, CMD_APPROACH},         {1, CMD_APPROACH},         {0, CMD_SETTING_POSITIVE},
      {0, CMD_SETTING_NEGATIVE}, {1, CMD_SETTING_POSITIVE}, {1, CMD_SETTING_NEGATIVE},
  };
  for (const Setting& setting : OPENING_SETTINGS) {
    const int32_t result = SendAxisByte(setting.axis, setting.command, 0);
    if (result != Ok) return result;
  }
  double ignored = 0.0;
  GetAxisPosition(0, &ignored);
  GetAxisPosition(1, &ignored);
  return Ok;
}

int32_t AuxBusMount::SetAxisRate(uint32_t axis, double rate) {
  if (!IsValidAxis(axis) || !std::isfinite(rate)) return InvalidParameter;
  // Running, even at a zero rate.
  NoteAxisRunning(axis, rate);
  return SetAxisRateRaw(axis, rate);
}

int32_t AuxBusMount::SlewAxisTo(uint32_t axis, double angle) {
  return SlewAxisToSending(axis, angle, NormalizeAngle(angle));
}

// Long moves go at the controller's fast GOTO, short ones at its slow one;
// the approach byte tells it from which side to arrive.
int32_t AuxBusMount::SlewAxisToSending(uint32_t axis, double angle, double sentAngle) {
  if (!IsValidAxis(axis) || !std::isfinite(angle) || !std::isfinite(sentAngle)) {
    return InvalidParameter;
  }
  axisTarget[axis] = angle;
  const int32_t read = ReadAxisPosition(axis);
  if (read != Ok) return read;
  const double delta = angle - axisPosition[axis];
  SendAxisByte(axis, CMD_APPROACH, delta < 0.0 ? 1 : 0);
  if (std::fabs(delta) > 1.5 * approachMargin) {
    axisStatus[axis] = AXIS_SLEWING | AXIS_HIGH_SPEED;
    axisRate[axis] = AUX_FAST_SLEW_RATE;
    return SendAxisAngle(axis, CMD_GOTO_FAST, sentAngle);
  }
  axisStatus[axis] = AXIS_SLEWING;
  axisRate[axis] = AUX_SLOW_SLEW_RATE;
  return SendAxisAngle(axis, CMD_GOTO_SLOW, sentAngle);
}

int32_t AuxBusMount::StopAxisMotor(uint32_t axis) {
  const int32_t result = SetAxisRateRaw(axis, 0.0);
  if (result == Ok) axisStatus[axis] = AXIS_STOPPED;
  return result;
}

int32_t AuxBusMount::SetAxisPosition(uint32_t axis, double angle) {
  if (!IsValidAxis(axis) || !std::isfinite(angle)) return InvalidParameter;
  return SendAxisAngle(axis, CMD_SET_POSITION, angle);
}

// ---------------------------------------------------------------------------
// Line discipline of the shared bus

// Waits briefly for another device to let go of the bus; if it does not,
// the packet still goes out, without RTS.
uint32_t AuxBusMount::BeginExchange() {
  if (noHandshake == 0) {
    for (int reading = 1; IsCtsHigh(); ++reading) {
      if (reading == AUX_BUS_FREE_READINGS) return 0;
      platform::Sleep(AUX_BUS_FREE_PAUSE_MS);
    }
  }
  SetRts();
  Purge();
  return 1;
}

// Our own packet comes back first on the shared wire: read it and drop it.
uint32_t AuxBusMount::AfterSend() {
  uint8_t echo[MAX_PACKET_SIZE];
  const uint32_t echoed = lastSendLength < sizeof echo ? lastSendLength : sizeof echo;
  Read(echo, echoed);
  ClearRts();
  return 1;
}

bool AuxBusMount::ReadByte(uint8_t* byte) { return Read(byte, 1) == 1; }

// Noise before the start byte and zero bytes before the length are skipped;
// a reply that stops short or claims more than the longest reply fails.
uint32_t AuxBusMount::ReceiveReply(uint8_t* reply) {
  uint8_t byte = 0;
  uint32_t skipped = 0;
  do {
    if (!ReadByte(&byte) || ++skipped > AUX_MAX_SKIPPED_BYTES) return 1;
  } while (byte != PACKET_START);
  uint8_t length = 0;
  do {
    if (!ReadByte(&length) || ++skipped > AUX_MAX_SKIPPED_BYTES) return 1;
  } while (length == 0);
  if (length > MAX_REPLY_LENGTH) return 1;
  uint8_t rest[MAX_REPLY_LENGTH + 1];
  const uint32_t restCount = length + 1u;
  if (Read(rest, restCount) < restCount) return 1;
  if (reply != nullptr) {
    reply[0] = PACKET_START;
    reply[LENGTH_OFFSET] = length;
    std::memcpy(reply + SOURCE_OFFSET, rest, restCount);
  }
  return 0;
}

void AuxBusMount::EndExchange() { ClearRts(); }

}  // namespace scopemount
