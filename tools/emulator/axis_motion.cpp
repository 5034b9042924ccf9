#include "axis_motion.h"

#include <cmath>

namespace scopemount::emulation {

void AxisMotion::Advance(uint64_t nowMs) {
  if (!started_ || nowMs < lastMs_) {
    started_ = true;
    lastMs_ = nowMs;
    return;
  }
  const double seconds = static_cast<double>(nowMs - lastMs_) / 1000.0;
  lastMs_ = nowMs;
  switch (mode_) {
    case Mode::Stopped:
      break;
    case Mode::Running:
      position_ += rate_ * seconds;
      break;
    case Mode::Slewing: {
      const double left = target_ - position_;
      const double step = slewSpeed_ * seconds;
      if (std::fabs(left) <= step) {
        position_ = target_;
        mode_ = Mode::Stopped;
        rate_ = 0.0;
      } else {
        position_ += std::copysign(step, left);
      }
      break;
    }
  }
}

double AxisMotion::Position(uint64_t nowMs) {
  Advance(nowMs);
  return position_;
}

uint32_t AxisMotion::Status(uint64_t nowMs) {
  Advance(nowMs);
  const uint32_t direction = rate_ > 0.0 ? MOTION_POSITIVE : 0;
  switch (mode_) {
    case Mode::Running:
      return MOTION_RUNNING | direction;
    case Mode::Slewing:
      return MOTION_SLEWING | direction;
    case Mode::Stopped:
      break;
  }
  return MOTION_STOPPED;
}

bool AxisMotion::IsMoving(uint64_t nowMs) { return (Status(nowMs) & MOTION_STOPPED) == 0; }

void AxisMotion::Run(double rate, uint64_t nowMs) {
  Advance(nowMs);
  rate_ = rate;
  mode_ = rate == 0.0 ? Mode::Stopped : Mode::Running;
}

void AxisMotion::GoTo(double target, uint64_t nowMs) { GoTo(target, slewRate_, nowMs); }

void AxisMotion::GoTo(double target, double speed, uint64_t nowMs) {
  Advance(nowMs);
  target_ = target;
  if (target == position_ || !(speed > 0.0)) {
    Run(0.0, nowMs);
    return;
  }
  slewSpeed_ = speed;
  rate_ = target > position_ ? speed : -speed;
  mode_ = Mode::Slewing;
}

void AxisMotion::Stop(uint64_t nowMs) { Run(0.0, nowMs); }

void AxisMotion::SetPosition(double position, uint64_t nowMs) {
  Advance(nowMs);
  position_ = position;
}

}  // namespace scopemount::emulation
