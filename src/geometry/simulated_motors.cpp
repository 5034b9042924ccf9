#include "geometry/simulated_motors.h"

#include <cmath>

#include "platform/clock.h"

namespace scopemount {

SimulatedMotors::SimulatedMotors(Mount& mount, double slewSpeed, AnglePair home)
    : mount_(mount), slewSpeed_(slewSpeed) {
  const uint32_t now = platform::TickCount();
  const double angles[AXIS_COUNT] = {home.lon, home.lat};
  for (uint32_t index = 0; index < AXIS_COUNT; ++index) {
    axes_[index].angle = angles[index];
    axes_[index].startAngle = angles[index];
    axes_[index].startTick = now;
    Publish(index);
  }
}

void SimulatedMotors::Advance(Axis& axis, uint32_t now) {
  if (axis.motion == Motion::Standing) return;
  // Unsigned difference: one wrap of the tick counter is harmless.
  const double seconds = static_cast<double>(now - axis.startTick) / 1000.0;
  axis.angle = axis.startAngle + axis.rate * seconds;
  if (axis.motion != Motion::Slewing) return;
  // Only passing the target ends a slew; standing exactly on it does not.
  const bool passed = axis.rate > 0.0 ? axis.target < axis.angle : axis.target > axis.angle;
  if (passed) {
    axis.angle = axis.target;
    axis.motion = Motion::Standing;
    axis.rate = 0.0;
  }
}

void SimulatedMotors::StartSegment(uint32_t index, Motion motion, double rate, uint32_t now) {
  Axis& axis = axes_[index];
  axis.motion = motion;
  axis.rate = motion == Motion::Standing ? 0.0 : rate;
  axis.startAngle = axis.angle;
  axis.startTick = now;
}

uint32_t SimulatedMotors::StatusBits(const Axis& axis) const {
  const uint32_t positive = axis.rate > 0.0 ? AXIS_POSITIVE : 0;
  switch (axis.motion) {
    case Motion::Standing:
      break;
    case Motion::Running:
      return AXIS_RUNNING | positive;
    case Motion::Slewing:
      return AXIS_SLEWING | positive;
  }
  return AXIS_STOPPED;
}

void SimulatedMotors::Publish(uint32_t index) {
  const Axis& axis = axes_[index];
  mount_.axisPosition[index] = axis.angle;
  mount_.axisStatus[index] = StatusBits(axis);
  mount_.segmentStartPosition[index] = axis.startAngle;
  mount_.segmentStartTick[index] = axis.startTick;
}

int32_t SimulatedMotors::ReadPosition(uint32_t axis) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  std::lock_guard lock(mutex_);
  Advance(axes_[axis], platform::TickCount());
  Publish(axis);
  return Ok;
}

int32_t SimulatedMotors::ReadStatus(uint32_t axis) { return ReadPosition(axis); }

int32_t SimulatedMotors::SetRate(uint32_t axis, double rate) {
  if (!IsValidAxis(axis) || !std::isfinite(rate)) return InvalidParameter;
  std::lock_guard lock(mutex_);
  const uint32_t now = platform::TickCount();
  Advance(axes_[axis], now);
  StartSegment(axis, rate == 0.0 ? Motion::Standing : Motion::Running, rate, now);
  if (rate != 0.0) mount_.axisDirection[axis] = rate > 0.0 ? 1 : 0;
  Publish(axis);
  return Ok;
}

int32_t SimulatedMotors::SlewTo(uint32_t axis, double angle) {
  if (!IsValidAxis(axis) || !std::isfinite(angle)) return InvalidParameter;
  std::lock_guard lock(mutex_);
  const uint32_t now = platform::TickCount();
  Axis& a = axes_[axis];
  Advance(a, now);
  a.target = angle;
  if (a.angle == angle) {
    StartSegment(axis, Motion::Standing, 0.0, now);
  } else {
    StartSegment(axis, Motion::Slewing, a.angle > angle ? -slewSpeed_ : slewSpeed_, now);
  }
  Publish(axis);
  return Ok;
}

int32_t SimulatedMotors::Stop(uint32_t axis) { return SetRate(axis, 0.0); }

int32_t SimulatedMotors::SetPosition(uint32_t axis, double angle) {
  if (!IsValidAxis(axis) || !std::isfinite(angle)) return InvalidParameter;
  std::lock_guard lock(mutex_);
  const uint32_t now = platform::TickCount();
  Axis& a = axes_[axis];
  Advance(a, now);
  a.angle = angle;
  StartSegment(axis, a.motion, a.rate, now);
  Publish(axis);
  return Ok;
}

}  // namespace scopemount
