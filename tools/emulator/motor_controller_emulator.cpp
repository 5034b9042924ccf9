#include "motor_controller_emulator.h"

#include <cmath>

#include "protocols/motorcontroller/motor_controller_codec.h"

namespace scopemount::emulation {

using namespace motorcontroller;

namespace {

const std::string REFUSED = {static_cast<char>(REPLY_REFUSED), static_cast<char>(FRAME_END)};

std::string Done(const std::string& payload = {}) {
  return static_cast<char>(REPLY_DONE) + payload + static_cast<char>(FRAME_END);
}

std::string Number(uint32_t value) {
  uint8_t digits[NUMBER_DIGITS];
  EncodeHex24(value, digits);
  return std::string(digits, digits + NUMBER_DIGITS);
}

// One byte, two digits: how this controller reports its small ratios.
std::string SmallNumber(uint32_t value) {
  if (value > 0xFF) return Number(value);
  return {HEX_DIGITS[(value >> 4) & 0xF], HEX_DIGITS[value & 0xF]};
}

bool ParseNumber(const std::string& data, uint32_t* value) {
  if (data.size() != NUMBER_DIGITS) return false;
  const std::string terminated = data + static_cast<char>(FRAME_END);
  return DecodeHex(reinterpret_cast<const uint8_t*>(terminated.data()), value);
}

// The version read in the order sent travels low byte first, like any number.
uint32_t SwapOuterBytes(uint32_t v) {
  return (v & 0xFF) << 16 | (v & 0xFF00) | ((v >> 16) & 0xFF);
}

}  // namespace

MotorControllerEmulator::MotorControllerEmulator(const MotorControllerSettings& settings)
    : settings_(settings) {
  for (Axis& axis : axes_) axis.initialised = settings.initialised;
}

void MotorControllerEmulator::Receive(const uint8_t* bytes, size_t count, uint64_t nowMs,
                                      ReplySink& sink) {
  std::lock_guard<std::mutex> lock(mutex_);
  for (size_t i = 0; i < count; ++i) {
    const uint8_t c = bytes[i];
    if (c == COMMAND_START) {
      inFrame_ = true;
      frame_.clear();
      continue;
    }
    if (!inFrame_) continue;
    if (c != FRAME_END) {
      if (frame_.size() <= MAX_COMMAND_DATA + 2) frame_.push_back(static_cast<char>(c));
      continue;
    }
    inFrame_ = false;
    const std::string reply = Answer(frame_, nowMs);
    sink.Reply(reinterpret_cast<const uint8_t*>(reply.data()), reply.size());
  }
}

std::string MotorControllerEmulator::Answer(const std::string& frame, uint64_t nowMs) {
  if (frame.size() < 2 || frame.size() > MAX_COMMAND_DATA + 2) return REFUSED;
  const int index = frame[1] == AXIS_CHARACTERS[0] ? 0 : frame[1] == AXIS_CHARACTERS[1] ? 1 : -1;
  if (index < 0) return REFUSED;
  return Execute(frame[0], axes_[index], index, frame.substr(2), nowMs);
}

double MotorControllerEmulator::CountsPerSecondAtSidereal(int index) const {
  return settings_.countsPerRevolution[index] / 86164.09065;
}

std::string MotorControllerEmulator::StatusDigits(Axis& axis, uint64_t nowMs) {
  const bool moving = axis.motion.IsMoving(nowMs);
  const bool negative = (axis.direction & 1) != 0;
  const bool highSpeed = axis.mode == MODE_HIGH_SPEED_GOTO || axis.mode == MODE_HIGH_SPEED_RATE;
  const int mode = (axis.rateMode ? STATUS_RATE_MODE : 0) | (negative ? STATUS_NEGATIVE : 0) |
                   (highSpeed ? STATUS_HIGH_SPEED : 0);
  return {HEX_DIGITS[mode], HEX_DIGITS[moving ? STATUS_RUNNING : 0],
          HEX_DIGITS[axis.initialised ? STATUS_INITIALISED : 0]};
}

void MotorControllerEmulator::Start(Axis& axis, int index, uint64_t nowMs) {
  const double sign = (axis.direction & 1) != 0 ? -1.0 : 1.0;
  if (axis.rateMode) {
    const double ratio = axis.mode == MODE_HIGH_SPEED_RATE ? settings_.highSpeedRatio[index] : 1.0;
    axis.speed = axis.period == 0 ? 0.0 : settings_.timerFrequency * ratio / axis.period;
    axis.motion.Run(sign * axis.speed, nowMs);
    return;
  }
  const double rate = axis.mode == MODE_HIGH_SPEED_GOTO ? settings_.highSpeedGotoRate
                                                        : settings_.lowSpeedGotoRate;
  axis.speed = rate * CountsPerSecondAtSidereal(index);
  const double from = axis.motion.Position(nowMs);
  axis.motion.GoTo(from + sign * axis.gotoCount, axis.speed, nowMs);
}

std::string MotorControllerEmulator::Execute(char letter, Axis& axis, int index,
                                             const std::string& data, uint64_t nowMs) {
  const bool moving = axis.motion.IsMoving(nowMs);
  uint32_t value = 0;
  switch (static_cast<uint8_t>(letter)) {
    case READ_VERSION:
      return Done(Number(SwapOuterBytes(settings_.boardVersion)));
    case READ_COUNTS_PER_REVOLUTION:
      return Done(Number(settings_.countsPerRevolution[index]));
    case READ_TIMER_FREQUENCY:
      return Done(Number(settings_.timerFrequency));
    case READ_HIGH_SPEED_RATIO:
      return Done(SmallNumber(settings_.highSpeedRatio[index]));
    case READ_WORM_STEPS:
      return Done(Number(settings_.wormSteps[index]));
    case READ_POSITION: {
      const double count = std::floor(axis.motion.Position(nowMs) + 0.5);
      return Done(Number(static_cast<uint32_t>(static_cast<int64_t>(count) + POSITION_OFFSET)));
    }
    case READ_STATUS:
      return Done(StatusDigits(axis, nowMs));
    case INITIALISE_AXIS:
      axis.initialised = true;
      return Done();
    case SET_MOTION_MODE:
      // The mode of a moving axis cannot change: it must be stopped first.
      if (data.size() != MODE_DIGITS || moving || data[0] < '0' || data[0] > '3' ||
          data[1] < '0' || data[1] > '3') {
        return REFUSED;
      }
      axis.mode = data[0];
      axis.direction = data[1];
      axis.rateMode = axis.mode == MODE_LOW_SPEED_RATE || axis.mode == MODE_HIGH_SPEED_RATE;
      return Done();
    case SET_GOTO_COUNT:
      if (!ParseNumber(data, &value) || moving) return REFUSED;
      axis.gotoCount = value;
      return Done();
    case SET_BRAKE_STEPS:
      return ParseNumber(data, &value) ? Done() : REFUSED;
    case SET_STEP_PERIOD:
      if (!ParseNumber(data, &value) || value == 0) return REFUSED;
      axis.period = value;
      // A running axis takes a new period at once.
      if (moving && axis.rateMode) Start(axis, index, nowMs);
      return Done();
    case START_MOTION:
      Start(axis, index, nowMs);
      return Done();
    case STOP_MOTION:
      if (moving) {
        // Runs on for the brake time, then stands.
        const double position = axis.motion.Position(nowMs);
        const double sign = (axis.direction & 1) != 0 ? -1.0 : 1.0;
        const double brake = axis.speed * settings_.brakeMs / 2000.0;
        axis.motion.GoTo(position + sign * brake, axis.speed / 2.0, nowMs);
      }
      return Done();
    case STOP_INSTANTLY:
      axis.motion.Stop(nowMs);
      return Done();
    case DECLARE_POSITION:
      if (!ParseNumber(data, &value)) return REFUSED;
      axis.motion.SetPosition(static_cast<double>(static_cast<int64_t>(value) - POSITION_OFFSET),
                              nowMs);
      return Done();
    default:
      return REFUSED;
  }
}

double MotorControllerEmulator::Count(int axis, uint64_t nowMs) {
  std::lock_guard<std::mutex> lock(mutex_);
  return axes_[axis & 1].motion.Position(nowMs);
}

bool MotorControllerEmulator::IsMoving(int axis, uint64_t nowMs) {
  std::lock_guard<std::mutex> lock(mutex_);
  return axes_[axis & 1].motion.IsMoving(nowMs);
}

double MotorControllerEmulator::RunRate(int axis, uint64_t nowMs) {
  std::lock_guard<std::mutex> lock(mutex_);
  Axis& a = axes_[axis & 1];
  if (!a.rateMode || !a.motion.IsMoving(nowMs)) return 0.0;
  return (a.direction & 1) != 0 ? -a.speed : a.speed;
}

std::string MotorControllerEmulator::LastMotionMode(int axis) {
  std::lock_guard<std::mutex> lock(mutex_);
  const Axis& a = axes_[axis & 1];
  return {a.mode, a.direction};
}

}  // namespace scopemount::emulation
