#include "compact_controller.h"

#include <cmath>

namespace scopemount::emulation {

namespace {

constexpr double TWO_PI = 6.283185307179586;
// A run command's number is ten times the rate in counts per second.
constexpr double RATE_NUMBER_PER_COUNT_RATE = 10.0;

uint32_t AxisOf(uint8_t code) { return code > compact::AXIS1_OFFSET ? 1 : 0; }

uint8_t Axis0Code(uint8_t code) {
  return code == compact::LOAD_ALTITUDE || code <= compact::AXIS1_OFFSET
             ? code
             : static_cast<uint8_t>(code - compact::AXIS1_OFFSET);
}

}  // namespace

CompactController::CompactController(uint32_t countsPerRevolution)
    : countsPerRevolution_(countsPerRevolution) {}

double CompactController::GotoSpeed() const {
  return compact::GOTO_SPEED * static_cast<double>(countsPerRevolution_) / TWO_PI;
}

uint32_t CompactController::Count(uint32_t axis, uint64_t nowMs) {
  const double revolution = static_cast<double>(countsPerRevolution_);
  double wrapped = std::fmod(std::floor(axes_[axis].Position(nowMs)), revolution);
  if (wrapped < 0.0) wrapped += revolution;
  return static_cast<uint32_t>(wrapped) & compact::LARGEST_NUMBER;
}

void CompactController::Receive(const uint8_t* bytes, size_t count, uint64_t nowMs,
                                ReplySink& sink) {
  for (size_t i = 0; i < count; ++i) {
    if (received_ == 0 && compact::DataLength(bytes[i]) < 0) continue;  // not a command
    command_[received_++] = bytes[i];
    if (received_ == 1 + static_cast<size_t>(compact::DataLength(command_[0]))) {
      Execute(nowMs, sink);
      received_ = 0;
    }
  }
}

void CompactController::ReplyCount(uint32_t axis, uint64_t nowMs, ReplySink& sink) {
  const uint32_t count = Count(axis, nowMs);
  const uint8_t reply[compact::POSITION_REPLY_LENGTH] = {
      static_cast<uint8_t>(count >> 16), static_cast<uint8_t>(count >> 8),
      static_cast<uint8_t>(count)};
  sink.Reply(reply, sizeof reply);
}

// The short way round to the target count.
void CompactController::GoTo(uint32_t axis, uint32_t target, uint64_t nowMs) {
  const double revolution = static_cast<double>(countsPerRevolution_);
  const double position = axes_[axis].Position(nowMs);
  double step = std::fmod(static_cast<double>(target) - position, revolution);
  if (step > revolution / 2.0) step -= revolution;
  if (step < -revolution / 2.0) step += revolution;
  axes_[axis].GoTo(position + step, GotoSpeed(), nowMs);
}

void CompactController::Execute(uint64_t nowMs, ReplySink& sink) {
  const uint8_t code = command_[0];
  const uint32_t axis = AxisOf(code);
  const uint32_t number = compact::DecodeNumber(command_ + 1);
  AxisMotion& motion = axes_[axis];
  switch (Axis0Code(code)) {
    case compact::READ_POSITION:
      ReplyCount(axis, nowMs, sink);
      return;
    case compact::READ_GOTO_STATUS: {
      const bool slewing = (motion.Status(nowMs) & MOTION_SLEWING) != 0;
      const uint8_t status = slewing ? 0x00 : compact::GOTO_ENDED;
      sink.Reply(&status, 1);
      return;
    }
    case compact::GOTO_COUNT:
      GoTo(axis, number, nowMs);
      break;
    case compact::STOP_GOTO:
      motion.Stop(nowMs);
      break;
    case compact::RUN_POSITIVE:
      motion.Run(static_cast<double>(number) / RATE_NUMBER_PER_COUNT_RATE, nowMs);
      break;
    case compact::RUN_NEGATIVE:
      motion.Run(-static_cast<double>(number) / RATE_NUMBER_PER_COUNT_RATE, nowMs);
      break;
    case compact::LOAD_ALTITUDE:
      axes_[1].SetPosition(static_cast<double>(number), nowMs);
      break;
    case compact::SET_REVOLUTION:
      // Both axes share one gearing; a count of 0 would leave no revolution.
      if (number != 0) countsPerRevolution_ = number;
      break;
    default:
      // Start-up settings with no effect on the motion here.
      break;
  }
  sink.Reply(nullptr, 0);
}

}  // namespace scopemount::emulation
