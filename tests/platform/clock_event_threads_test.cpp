#include <gtest/gtest.h>

#include <thread>

#include "platform/clock.h"
#include "platform/event.h"
#include "support/fast_clock.h"

namespace scopemount::platform {
namespace {

using scopemount::testing::ScopedFastClock;
using scopemount::testing::WaitUntil;

TEST(Clock, FastClockRunsAheadAndTickWraps) {
  // 100x: two seconds cost 20 ms of wall time, and the tick starts one
  // second (10 ms of wall time) before its wrap.
  ScopedFastClock fast(100.0, 0x100000000ull - 1000);
  const uint32_t before = TickCount();
  const auto wallStart = std::chrono::steady_clock::now();
  Sleep(2000);
  const auto wall = std::chrono::steady_clock::now() - wallStart;
  const uint32_t elapsed = TickCount() - before;  // unsigned difference across the wrap
  EXPECT_GE(elapsed, 2000u) << "a sleep never ends early on its own clock";
  // Slack for a loaded, sanitised run: 200 ms of wall time at this speed.
  EXPECT_LT(elapsed, 2000u + 20000u) << "nor ten times too late";
  EXPECT_LT(TickCount(), before) << "the 32-bit tick wrapped";
  EXPECT_LT(wall, std::chrono::milliseconds(1000)) << "2 s of test clock cost under a second";
}

TEST(Event, TimedWaitsAndBothResetKinds) {
  ScopedFastClock fast(100.0);
  Event never(/*manualReset=*/true, /*initiallySignalled=*/false);
  const uint32_t start = TickCount();
  EXPECT_EQ(never.Wait(1000), WaitResult::TimedOut);
  const uint32_t waited = TickCount() - start;
  EXPECT_GE(waited, 1000u) << "a timed wait never ends early on its own clock";
  EXPECT_LT(waited, 1000u + 20000u) << "nor far too late (200 ms of wall time: a loaded run)";

  Event manual(true, true);
  EXPECT_EQ(manual.Wait(0), WaitResult::Signalled);
  EXPECT_EQ(manual.Wait(0), WaitResult::Signalled) << "manual-reset stays signalled";
  manual.Reset();
  EXPECT_EQ(manual.Wait(10), WaitResult::TimedOut);

  Event automatic(false, false);
  automatic.Set();
  EXPECT_EQ(automatic.Wait(0), WaitResult::Signalled);
  EXPECT_EQ(automatic.Wait(10), WaitResult::TimedOut) << "one wait consumes the signal";
}

TEST(Event, SetFromAnotherThreadWakesAWaiter) {
  ScopedFastClock fast(50.0);
  Event event(false, false);
  // Before or during the wait: an automatic-reset event keeps the signal
  // for the waiter either way.
  std::thread setter([&] { event.Set(); });
  EXPECT_EQ(event.Wait(WAIT_FOREVER), WaitResult::Signalled);
  setter.join();
}

}  // namespace
}  // namespace scopemount::platform
