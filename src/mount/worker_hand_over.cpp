#include "mount/worker_hand_over.h"

#include "platform/clock.h"

namespace scopemount {

namespace {

bool Superseded(const Mount& mount, uint32_t request, uint32_t driven) {
  for (uint32_t axis = 0; axis < AXIS_COUNT; ++axis) {
    if ((driven & AxisBit(axis)) != 0 && !mount.IsLatestRequest(request, axis)) return true;
  }
  return false;
}

}  // namespace

bool TakeOverAxes(Mount& mount, uint32_t waitMs, TakeOver how, uint32_t driven,
                  uint32_t request) {
  const bool interrupt = how == TakeOver::Interrupt;
  const uint32_t start = platform::TickCount();
  for (;;) {
    if (interrupt && Superseded(mount, request, driven)) return false;
    const uint32_t elapsed = platform::TickCount() - start;
    const uint32_t remaining = elapsed >= waitMs ? 0 : waitMs - elapsed;
    if (interrupt) mount.abortRequest = 1;
    const platform::WaitResult waited = mount.workerIdleEvent.Wait(remaining);
    if (interrupt) mount.abortRequest = 0;
    if (waited == platform::WaitResult::TimedOut) return false;
    if (interrupt && Superseded(mount, request, driven)) return false;
    uint32_t unclaimed = 0;
    if (mount.axesClaimed.compare_exchange_strong(unclaimed, 1)) {
      // Before the reset: a stop that sees the event unsignalled also sees
      // which axes this worker drives.
      mount.drivenAxes = driven;
      mount.workerIdleEvent.Reset();
      return true;
    }
    // Another waiter woke by the same signal and got the axes first: sleep
    // until it hands them back (or the wait's time is up), then wait for
    // the event again.
    if (interrupt && Superseded(mount, request, driven)) return false;
    if (interrupt) mount.abortRequest = 1;
    mount.motionNotice.WaitUntilTick(start + waitMs, [&mount] { return mount.axesClaimed == 0; });
    if (interrupt) mount.abortRequest = 0;
  }
}

void HandBackAxes(Mount& mount) {
  mount.axesClaimed = 0;
  mount.drivenAxes = 0;
  mount.workerIdleEvent.Set();
  mount.motionNotice.Notify();
}

}  // namespace scopemount
