// The one clock behind tick counts, sleeps and timed waits.
//
// Everything in the library that measures time goes through ActiveClock(),
// so tests can swap in a clock that runs faster than the wall: a 30 s
// tracking cycle or a 2 s take-over wait then costs milliseconds, while the
// order of waits and wake-ups stays that of real threads.
#pragma once

#include <chrono>
#include <cstdint>

namespace scopemount::platform {

// Wait "forever" (the platform's INFINITE).
inline constexpr uint32_t WAIT_FOREVER = 0xFFFFFFFFu;

class Clock {
 public:
  virtual ~Clock() = default;
  // Milliseconds of this clock since an arbitrary start; never goes back.
  virtual uint64_t NowMs() const = 0;
  // The steady-clock instant at which `ms` of this clock will have passed.
  virtual std::chrono::steady_clock::time_point RealDeadlineAfter(uint32_t ms) const = 0;
};

// Wall-speed monotonic clock: the platform's millisecond counter (its NowMs
// is defined by each platform back end).
class SystemClock final : public Clock {
 public:
  uint64_t NowMs() const override;
  std::chrono::steady_clock::time_point RealDeadlineAfter(uint32_t ms) const override;
};

// A clock that runs `speed` times faster than the wall, starting at
// `startMs` (so tests can start the 32-bit tick near its wrap).
class ScaledClock final : public Clock {
 public:
  explicit ScaledClock(double speed, uint64_t startMs = 0);
  uint64_t NowMs() const override;
  std::chrono::steady_clock::time_point RealDeadlineAfter(uint32_t ms) const override;
  double speed() const { return speed_; }

 private:
  const double speed_;
  const uint64_t startMs_;
  const std::chrono::steady_clock::time_point origin_;
};

Clock& ActiveClock();
// Makes `clock` the active clock (null restores the system clock). Swap only
// while no mount is connected: running workers keep reading the clock.
void UseClock(Clock* clock);

// The 32-bit millisecond counter, wrapping after about 49.7 days.
uint32_t TickCount();
// Sleeps `ms` of the active clock.
void Sleep(uint32_t ms);

}  // namespace scopemount::platform
