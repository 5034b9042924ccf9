// A broadcast that something a waiter may be watching has changed: a run
// flag, the tracking bit, a release. Waiters sleep until their own
// condition holds or a tick-count deadline passes, so a wait that must end
// on time and also at once on a change costs no processor time meanwhile.
//
// Whoever changes watched state stores it first and then calls Notify; the
// waiter tests its condition under the notice's lock, so no change between
// the test and the sleep is missed.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "platform/clock.h"

namespace scopemount::platform {

class Notice {
 public:
  Notice() = default;
  Notice(const Notice&) = delete;
  Notice& operator=(const Notice&) = delete;

  void Notify();

  // Waits until done() holds or the tick count reaches `deadlineTick`
  // (wrap-safe). True when done() ended the wait.
  template <typename Done>
  bool WaitUntilTick(uint32_t deadlineTick, Done&& done) {
    std::unique_lock lock(mutex_);
    for (;;) {
      if (done()) return true;
      const auto left = static_cast<int32_t>(deadlineTick - TickCount());
      if (left <= 0) return false;
      changed_.wait_until(lock, ActiveClock().RealDeadlineAfter(static_cast<uint32_t>(left)));
    }
  }

  // Waits until done() holds or `ms` of the active clock have passed.
  template <typename Done>
  bool WaitFor(uint32_t ms, Done&& done) {
    return WaitUntilTick(TickCount() + ms, done);
  }

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
};

}  // namespace scopemount::platform
