// The software motors of the two simulated mounts: one per axis, moving
// piecewise linearly on the tick count.
//
// An axis stands, runs at a signed rate, or slews toward a target angle at
// the simulator's slew speed. Its angle is worked out from the segment's
// start angle, rate and start tick whenever somebody asks, so nothing runs
// in the background and a fast test clock speeds everything up alike. A
// slew is seen to end by the first read after the axis has passed its
// target: the angle snaps onto the target and the axis reports stopped.
//
// The motors publish what the mount core reads (axisPosition, axisStatus,
// axisDirection, and the segment's start angle and tick) but keep their own
// slew target and rate: the core keeps in axisTarget and axisRate the
// targets and rates of requests a worker has not yet picked up, and a motor
// that a finishing worker stops must not overwrite those.
//
// The caller's thread and the workers command the same axis; one lock keeps
// each command whole (a segment's start, rate and tick belong together).
#pragma once

#include <cstdint>
#include <mutex>

#include "mount/mount.h"

namespace scopemount {

class SimulatedMotors {
 public:
  // `slewSpeed` in radians per second; the axes start standing at `home`.
  SimulatedMotors(Mount& mount, double slewSpeed, AnglePair home);
  SimulatedMotors(const SimulatedMotors&) = delete;
  SimulatedMotors& operator=(const SimulatedMotors&) = delete;

  // Bring axisPosition and axisStatus up to date (ending a slew that passed
  // its target). Both read the clock: a slew ends whether the host polls
  // positions or only the status.
  int32_t ReadPosition(uint32_t axis);
  int32_t ReadStatus(uint32_t axis);
  // Runs the axis at a signed rate from where it is now; 0 stops it.
  int32_t SetRate(uint32_t axis, double rate);
  // Starts the axis toward `angle` the direct way (no wrap at +-pi);
  // a target equal to the current angle leaves it standing.
  int32_t SlewTo(uint32_t axis, double angle);
  int32_t Stop(uint32_t axis);
  // Makes `angle` the axis's current angle without changing its motion.
  int32_t SetPosition(uint32_t axis, double angle);

 private:
  enum class Motion { Standing, Running, Slewing };
  struct Axis {
    Motion motion = Motion::Standing;
    double startAngle = 0.0;
    uint32_t startTick = 0;
    double rate = 0.0;    // signed, while running or slewing
    double target = 0.0;  // while slewing
    double angle = 0.0;   // as last worked out
  };

  // Works the axis angle out for `now`, ending a slew that passed its target.
  void Advance(Axis& axis, uint32_t now);
  // Starts a new segment at the current angle.
  void StartSegment(uint32_t index, Motion motion, double rate, uint32_t now);
  uint32_t StatusBits(const Axis& axis) const;
  void Publish(uint32_t index);

  Mount& mount_;
  const double slewSpeed_;
  std::mutex mutex_;
  Axis axes_[AXIS_COUNT];
};

}  // namespace scopemount
