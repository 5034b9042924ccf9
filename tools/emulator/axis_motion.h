// One motor axis of an emulated controller: a position that really moves,
// at a set rate or towards a GOTO target, as the bench's clock runs. Units
// are the model's own (counts, radians, ...); rates are units per second.
#pragma once

#include <cstdint>

namespace scopemount::emulation {

// Status bits as controllers commonly report them (and as the library's
// axis status counts them).
inline constexpr uint32_t MOTION_STOPPED = 1;
inline constexpr uint32_t MOTION_RUNNING = 2;
inline constexpr uint32_t MOTION_SLEWING = 4;
inline constexpr uint32_t MOTION_POSITIVE = 8;

class AxisMotion {
 public:
  // `slewRate` (> 0): the speed of a GOTO.
  explicit AxisMotion(double slewRate) : slewRate_(slewRate) {}

  double Position(uint64_t nowMs);
  uint32_t Status(uint64_t nowMs);
  bool IsMoving(uint64_t nowMs);

  // Runs at `rate` (0 stops) from now on.
  void Run(double rate, uint64_t nowMs);
  // Moves to `target` at the slew rate and stops there.
  void GoTo(double target, uint64_t nowMs);
  // Moves to `target` at `speed` (> 0; units per second) and stops there.
  void GoTo(double target, double speed, uint64_t nowMs);
  void Stop(uint64_t nowMs);
  // Declares the current position without moving.
  void SetPosition(double position, uint64_t nowMs);

 private:
  enum class Mode { Stopped, Running, Slewing };
  void Advance(uint64_t nowMs);

  const double slewRate_;
  Mode mode_ = Mode::Stopped;
  double position_ = 0.0;
  double rate_ = 0.0;
  double target_ = 0.0;
  double slewSpeed_ = 0.0;
  uint64_t lastMs_ = 0;
  bool started_ = false;
};

}  // namespace scopemount::emulation
