// Fast test time and condition waits with a real-time deadline.
#pragma once

#include <chrono>
#include <cstdint>
#include <thread>

#include "platform/clock.h"

namespace scopemount::testing {

// Makes a clock `speed` times faster than the wall the active clock while
// the object lives. The clock itself is never freed, so a worker thread
// that outlives a test never reads a destroyed clock.
class ScopedFastClock {
 public:
  explicit ScopedFastClock(double speed, uint64_t startMs = 1000000);
  ~ScopedFastClock();
  ScopedFastClock(const ScopedFastClock&) = delete;
  ScopedFastClock& operator=(const ScopedFastClock&) = delete;

 private:
  platform::ScaledClock* clock_;
};

// Polls `condition` until it holds; false once `timeout` of real time has
// passed without it.
template <typename Condition>
bool WaitUntil(Condition&& condition,
               std::chrono::milliseconds timeout = std::chrono::milliseconds(20000)) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::microseconds(200));
  }
  return true;
}

}  // namespace scopemount::testing
