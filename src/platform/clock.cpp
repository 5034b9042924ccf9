#include "platform/clock.h"

#include <atomic>
#include <thread>

#include "platform/never_destroyed.h"

namespace scopemount::platform {

namespace {

using SteadyClock = std::chrono::steady_clock;

// Never destroyed: a detached worker may still read the clock while the
// process exits and runs its static destructors.
SystemClock& TheSystemClock() {
  static NeverDestroyed<SystemClock> clock;
  return clock.get();
}

std::atomic<Clock*> activeClock{nullptr};

}  // namespace

SteadyClock::time_point SystemClock::RealDeadlineAfter(uint32_t ms) const {
  return SteadyClock::now() + std::chrono::milliseconds(ms);
}

ScaledClock::ScaledClock(double speed, uint64_t startMs)
    : speed_(speed > 0.0 ? speed : 1.0), startMs_(startMs), origin_(SteadyClock::now()) {}

uint64_t ScaledClock::NowMs() const {
  const std::chrono::duration<double, std::milli> real = SteadyClock::now() - origin_;
  return startMs_ + static_cast<uint64_t>(real.count() * speed_);
}

SteadyClock::time_point ScaledClock::RealDeadlineAfter(uint32_t ms) const {
  // Rounded up, plus a microsecond against rounding in NowMs, so that a wait
  // never ends before its time has passed on this clock.
  const std::chrono::duration<double, std::milli> real(ms / speed_);
  return SteadyClock::now() + std::chrono::ceil<SteadyClock::duration>(real) +
         std::chrono::microseconds(1);
}

Clock& ActiveClock() {
  Clock* clock = activeClock.load(std::memory_order_acquire);
  return clock != nullptr ? *clock : TheSystemClock();
}

void UseClock(Clock* clock) { activeClock.store(clock, std::memory_order_release); }

uint32_t TickCount() { return static_cast<uint32_t>(ActiveClock().NowMs()); }

void Sleep(uint32_t ms) { std::this_thread::sleep_until(ActiveClock().RealDeadlineAfter(ms)); }

}  // namespace scopemount::platform
