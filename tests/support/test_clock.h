// The fast clock for tests, and waiting on a condition with a deadline.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <thread>

#include "platform/clock.h"

namespace scopemount::testing {

// Makes a clock `speed` times faster than the wall the active one while the
// object lives.
class ScopedTestClock {
 public:
  explicit ScopedTestClock(double speed, uint64_t startMs = 0) : clock_(speed, startMs) {
    platform::UseClock(&clock_);
  }
  ~ScopedTestClock() { platform::UseClock(nullptr); }
  ScopedTestClock(const ScopedTestClock&) = delete;
  ScopedTestClock& operator=(const ScopedTestClock&) = delete;

  platform::ScaledClock& clock() { return clock_; }

 private:
  platform::ScaledClock clock_;
};

// Polls `condition` until it holds or `realTimeout` of wall time has passed;
// returns whether it held. For conditions another thread makes true.
inline bool WaitFor(const std::function<bool()>& condition,
                    std::chrono::milliseconds realTimeout = std::chrono::seconds(10)) {
  const auto deadline = std::chrono::steady_clock::now() + realTimeout;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return condition();
    std::this_thread::yield();
  }
  return true;
}

}  // namespace scopemount::testing
