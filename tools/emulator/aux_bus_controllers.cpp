#include "aux_bus_controllers.h"

#include <cmath>

#include "protocols/auxbus/aux_packet.h"

namespace scopemount::emulation {

using namespace auxbus;

namespace {

constexpr double PI = 3.141592653589793;
constexpr double RADIANS_PER_COUNT = PI / COUNTS_PER_HALF_TURN;
// Wire rate units (1/1024 arcsecond per second) per radian per second.
constexpr double WIRE_RATE_PER_RADIAN = 4.0 / PI * 180.0 * 3600.0 * RATE_WIRE_SHIFT;
// A packet the bus cannot frame is dropped byte by byte until one starts.
constexpr size_t MAX_PENDING = 4096;

double AngleOf(const uint8_t* bytes) { return GetSigned24(bytes) * RADIANS_PER_COUNT; }

int32_t CountsOf(double angle) {
  const long counts = std::lround(angle / RADIANS_PER_COUNT);
  return static_cast<int32_t>(counts & FIELD_MASK);
}

double RateOf(const uint8_t* bytes) {
  const uint32_t wire = (uint32_t{bytes[0]} << 16) | (uint32_t{bytes[1]} << 8) | bytes[2];
  return wire / WIRE_RATE_PER_RADIAN;
}

// Into [-pi, pi), where the controller's 24-bit counter lives.
double Wrap(double angle) { return angle - 2.0 * PI * std::floor((angle + PI) / (2.0 * PI)); }

}  // namespace

AuxBusControllers::AuxBusControllers() = default;

void AuxBusControllers::SetFaults(const AuxBusFaults& faults) {
  std::lock_guard lock(mutex_);
  faults_ = faults;
}

void AuxBusControllers::SetVersion(uint32_t axis, uint8_t major, uint8_t minor) {
  std::lock_guard lock(mutex_);
  controllers_[axis & 1].version[0] = major;
  controllers_[axis & 1].version[1] = minor;
}

double AuxBusControllers::WrappedPosition(Controller& controller, uint64_t nowMs) {
  return Wrap(controller.motion.Position(nowMs));
}

double AuxBusControllers::Position(uint32_t axis, uint64_t nowMs) {
  std::lock_guard lock(mutex_);
  return WrappedPosition(controllers_[axis & 1], nowMs);
}

uint32_t AuxBusControllers::Status(uint32_t axis, uint64_t nowMs) {
  std::lock_guard lock(mutex_);
  return controllers_[axis & 1].motion.Status(nowMs);
}

void AuxBusControllers::SetPosition(uint32_t axis, double angle, uint64_t nowMs) {
  std::lock_guard lock(mutex_);
  controllers_[axis & 1].motion.SetPosition(Wrap(angle), nowMs);
}

uint8_t AuxBusControllers::Setting(uint32_t axis, uint8_t command) const {
  std::lock_guard lock(mutex_);
  const Controller& controller = controllers_[axis & 1];
  if (command == CMD_APPROACH) return controller.approach;
  if (command == CMD_SETTING_POSITIVE) return controller.positiveSetting;
  return controller.negativeSetting;
}

uint32_t AuxBusControllers::CommandsAnswered(uint32_t axis) const {
  std::lock_guard lock(mutex_);
  return controllers_[axis & 1].answered;
}

// Frames packets out of the byte stream: anything before a start byte, or a
// start byte with an impossible length, is noise.
void AuxBusControllers::Receive(const uint8_t* bytes, size_t count, uint64_t nowMs,
                                ReplySink& sink) {
  std::lock_guard lock(mutex_);
  pending_.insert(pending_.end(), bytes, bytes + count);
  size_t start = 0;
  while (start < pending_.size()) {
    if (pending_[start] != PACKET_START) {
      ++start;
      continue;
    }
    if (pending_.size() - start < 2) break;
    const uint8_t length = pending_[start + LENGTH_OFFSET];
    if (length < HEADER_LENGTH || length > MAX_REPLY_LENGTH) {
      ++start;
      continue;
    }
    const size_t size = length + FRAMING_BYTES;
    if (pending_.size() - start < size) break;
    TakePacket(pending_.data() + start, size, nowMs, sink);
    start += size;
  }
  pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(start));
  if (pending_.size() > MAX_PENDING) pending_.clear();
}

// Only the addressed controller answers, and only a packet whose checksum
// holds; everything else passes by unanswered.
void AuxBusControllers::TakePacket(const uint8_t* packet, size_t size, uint64_t nowMs,
                                   ReplySink& sink) {
  const uint8_t destination = packet[DESTINATION_OFFSET];
  const bool intact = Checksum(packet, size - 1) == packet[size - 1];
  int axis = -1;
  if (destination == AXIS_ADDRESS[0]) axis = 0;
  if (destination == AXIS_ADDRESS[1]) axis = 1;
  if (!intact || axis < 0 || faults_.missing[axis]) {
    sink.Reply(nullptr, 0);
    return;
  }
  Controller& controller = controllers_[axis];
  uint8_t data[MAX_REPLY_LENGTH];
  const uint8_t command = packet[COMMAND_OFFSET];
  const size_t answered = Answer(controller, command, packet + DATA_OFFSET,
                                 size - DATA_OFFSET - 1, nowMs, data);
  ++controller.answered;
  const uint8_t source = faults_.wrongSource ? AXIS_ADDRESS[1 - axis] : AXIS_ADDRESS[axis];
  uint8_t reply[MAX_PACKET_SIZE];
  const size_t replySize = BuildPacket(source, HOST_ADDRESS, command, data, answered, reply);
  if (faults_.badChecksum) reply[replySize - 1] ^= 0x5A;
  sink.Reply(reply, replySize);
}

size_t AuxBusControllers::Answer(Controller& controller, uint8_t command, const uint8_t* data,
                                 size_t count, uint64_t nowMs, uint8_t* answer) {
  AxisMotion& motion = controller.motion;
  const bool hasAngle = count >= 3;
  const uint8_t value = count >= 1 ? data[0] : 0;
  switch (command) {
    case CMD_GET_POSITION:
      PutBigEndian24(static_cast<uint32_t>(CountsOf(WrappedPosition(controller, nowMs))), answer);
      return 3;
    case CMD_GOTO_FAST:
    case CMD_GOTO_SLOW:
      if (hasAngle) {
        // The counter wraps: a GOTO runs within one turn, from where it stands.
        motion.SetPosition(WrappedPosition(controller, nowMs), nowMs);
        motion.GoTo(AngleOf(data),
                    command == CMD_GOTO_FAST ? AUX_EMULATED_FAST_GOTO : AUX_EMULATED_SLOW_GOTO,
                    nowMs);
      }
      return 0;
    case CMD_SET_POSITION:
      if (hasAngle) motion.SetPosition(AngleOf(data), nowMs);
      return 0;
    case CMD_RATE_POSITIVE:
    case CMD_RATE_NEGATIVE:
      if (hasAngle) motion.Run(command == CMD_RATE_POSITIVE ? RateOf(data) : -RateOf(data), nowMs);
      return 0;
    case CMD_SLEW_DONE:
      answer[0] = (motion.Status(nowMs) & MOTION_SLEWING) != 0 ? 0x00 : 0xFF;
      return 1;
    case CMD_GET_VERSION:
      answer[0] = controller.version[0];
      answer[1] = controller.version[1];
      return 2;
    case CMD_APPROACH:
      controller.approach = value;
      return 0;
    case CMD_SETTING_POSITIVE:
      controller.positiveSetting = value;
      return 0;
    case CMD_SETTING_NEGATIVE:
      controller.negativeSetting = value;
      return 0;
    default:
      return 0;
  }
}

}  // namespace scopemount::emulation
