// Manual motion handing back to tracking, and a tracking start cut short
// by a GOTO, on the two simulators through the C boundary.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

#include "geometry/altaz_mount.h"
#include "geometry/simulator_session.h"
#include "mount/mount.h"

namespace scopemount {
namespace {

using namespace testing;

// The axis runs at `rate`: two timed readings `ms` of test time apart
// allow it (ticks are whole milliseconds: one more either way).
::testing::AssertionResult RunsAt(uint32_t axis, double rate, uint32_t ms) {
  double first = NAN, second = NAN;
  const uint32_t before1 = Tick();
  ScopeGetAxisPosition(axis, &first);
  const uint32_t after1 = Tick();
  WaitTestTime(ms);
  const uint32_t before2 = Tick();
  ScopeGetAxisPosition(axis, &second);
  const uint32_t after2 = Tick();
  const double a = (second - first) / (SecondsBetween(before1, after2) + 0.002);
  const double b = (second - first) / (SecondsBetween(after1, before2) - 0.002);
  if (rate >= std::min(a, b) && rate <= std::max(a, b)) return ::testing::AssertionSuccess();
  return ::testing::AssertionFailure()
         << "axis " << axis << " runs at [" << a << ", " << b << "], not " << rate;
}

// --- Manual motion and tracking -----------------------------------------------

TEST(EquatorialSimulator, ManualMotionAndHandBackToTracking) {
  for (double latitude : {0.6, -0.6}) {
    SimulatorSession session(SCOPE_MODEL_EQUATORIAL_SIMULATOR, latitude, 3000.0);
    const double sign = latitude > 0.0 ? 1.0 : -1.0;
    ASSERT_EQ(ScopeSetTracking(1), SCOPE_OK);
    ASSERT_TRUE(WaitForTracking());
    EXPECT_TRUE(RunsAt(0, sign * SIDEREAL_RATE, 600000));
    EXPECT_EQ(AxisStatus(1), SCOPE_AXIS_STOPPED);

    // A manual motion of the hour-angle axis, then back to tracking.
    const double fast = 50 * SIDEREAL_RATE;
    ASSERT_EQ(ScopeMoveAxis(0, -fast), SCOPE_OK);
    ASSERT_TRUE(WaitForWorkers());
    EXPECT_EQ(MountState(), SCOPE_STATE_MOVING);
    EXPECT_EQ(AxisStatus(0), SCOPE_AXIS_RUNNING);
    EXPECT_TRUE(RunsAt(0, -fast, 60000));
    ASSERT_EQ(ScopeStopAxis(0), SCOPE_OK);
    // The axis reports running (tracking) at once; the tracking worker then
    // sets the rate.
    ASSERT_TRUE(WaitUntil([] {
      return CurrentMount()->References() == 1 && MountState() == SCOPE_STATE_TRACKING;
    })) << "tracking was wanted";
    EXPECT_TRUE(RunsAt(0, sign * SIDEREAL_RATE, 600000));
    // The declination axis stops outright.
    ASSERT_EQ(ScopeMoveAxis(1, fast), SCOPE_OK);
    ASSERT_TRUE(
        WaitUntil([] { return AxisStatus(1) == (SCOPE_AXIS_RUNNING | SCOPE_AXIS_POSITIVE); }));
    ASSERT_EQ(ScopeStopAxis(1), SCOPE_OK);
    EXPECT_EQ(AxisStatus(1), SCOPE_AXIS_STOPPED);

    ASSERT_EQ(ScopeSetTracking(0), SCOPE_OK);
    EXPECT_EQ(MountState(), SCOPE_STATE_IDLE);
    EXPECT_EQ(AxisStatus(0), SCOPE_AXIS_STOPPED);
  }
}

TEST(AltAzSimulator, ManualMotionHaltsTrackingWhichResumesWhenBothAxesStop) {
  // The design's waits run on the test clock too: halting the loop waits
  // 3000 ms of it, which must leave a busy machine time to end the thread.
  SimulatorSession session(SCOPE_MODEL_ALTAZ_SIMULATOR, 0.6, 300.0);
  ASSERT_EQ(ScopeSyncAxis(0, 2.0), SCOPE_OK);
  ASSERT_EQ(ScopeSyncAxis(1, 40 * DEG), SCOPE_OK);
  ASSERT_EQ(ScopeSetTracking(1), SCOPE_OK);
  ASSERT_TRUE(WaitForTracking());
  ASSERT_TRUE(WaitUntil([] {
    return (AxisStatus(0) & SCOPE_AXIS_RUNNING) != 0 && (AxisStatus(1) & SCOPE_AXIS_RUNNING) != 0;
  })) << "both axes track";
  AltAzMount& altaz = dynamic_cast<AltAzMount&>(*CurrentMount());
  EXPECT_TRUE(altaz.IsTrackingLoopRunning());

  const double rate = 100 * SIDEREAL_RATE;
  ASSERT_EQ(ScopeMoveAxis(1, rate), SCOPE_OK);
  EXPECT_TRUE(WaitUntil([&] { return !altaz.IsTrackingLoopRunning(); }))
      << "a manual motion halts the loop";
  ASSERT_EQ(ScopeMoveAxis(0, -rate), SCOPE_OK);
  ASSERT_TRUE(WaitForWorkers()) << "both rates set";
  EXPECT_EQ(MountState(), SCOPE_STATE_MOVING);
  EXPECT_EQ(AxisStatus(0), SCOPE_AXIS_RUNNING);
  EXPECT_EQ(AxisStatus(1), SCOPE_AXIS_RUNNING | SCOPE_AXIS_POSITIVE);
  EXPECT_TRUE(RunsAt(0, -rate, 10000));
  EXPECT_TRUE(RunsAt(1, rate, 10000));
  // One axis still driven: tracking waits.
  ASSERT_EQ(ScopeStopAxis(0), SCOPE_OK);
  EXPECT_EQ(AxisStatus(0), SCOPE_AXIS_STOPPED);
  EXPECT_EQ(MountState(), SCOPE_STATE_MOVING);
  EXPECT_FALSE(altaz.IsTrackingLoopRunning());
  // Both stopped and tracking wanted: it resumes where the mount now points.
  const AnglePair stoppedAt = AxisPositions();
  ASSERT_EQ(ScopeStopAxis(1), SCOPE_OK);
  ASSERT_TRUE(WaitForTracking());
  ASSERT_TRUE(WaitUntil([&] { return altaz.IsTrackingLoopRunning(); }));
  EXPECT_LT(Separation(AxisPositions(), stoppedAt), 1 * DEG) << "no slew back";

  ASSERT_EQ(ScopeSetTracking(0), SCOPE_OK);
  ASSERT_TRUE(WaitForWorkers()) << "the loop ended";
  EXPECT_EQ(AxisStatus(0), SCOPE_AXIS_STOPPED);
  EXPECT_EQ(AxisStatus(1), SCOPE_AXIS_STOPPED);
  EXPECT_EQ(MountState(), SCOPE_STATE_IDLE);
  const AnglePair still = AxisPositions();
  WaitTestTime(30000);
  EXPECT_EQ(AxisPositions().lon, still.lon) << "stopping tracking stops both motors";
}

TEST(AltAzSimulator, AGotoRightAfterATrackingStartCancelsTheStart) {
  // The tracking starter may not have run when the GOTO halts tracking; it
  // must then give up instead of starting a loop behind the slew's back.
  // A slow test clock: the halt's 3000 ms wait must stay long enough in wall
  // time for a loaded, sanitised run to end a loop that did start.
  SimulatorSession session(SCOPE_MODEL_ALTAZ_SIMULATOR, 0.6, 30.0);
  AltAzMount& altaz = dynamic_cast<AltAzMount&>(*CurrentMount());
  for (int round = 0; round < 20; ++round) {
    SCOPED_TRACE(round);
    ASSERT_EQ(ScopeSetTracking(1), SCOPE_OK);
    // Both axes move every round, so a loop cycle that ran before the halt
    // is overridden by the slew; only a loop started behind it leaves rates.
    const double step = (round % 2 == 0 ? 5 : 10) * DEG;
    ASSERT_EQ(ScopeGotoAxes(step, 20 * DEG + step), SCOPE_OK);
    ASSERT_TRUE(WaitForWorkers()) << "no loop outlives the GOTO";
    EXPECT_FALSE(altaz.IsTrackingLoopRunning());
    EXPECT_EQ(MountState(), SCOPE_STATE_IDLE);
    EXPECT_EQ(AxisStatus(0), SCOPE_AXIS_STOPPED);
    EXPECT_EQ(AxisStatus(1), SCOPE_AXIS_STOPPED);
  }
  // Polling the state while tracking starts never cancels it.
  ASSERT_EQ(ScopeSetTracking(1), SCOPE_OK);
  for (int poll = 0; poll < 2000 && !altaz.IsTrackingLoopRunning(); ++poll) MountState();
  ASSERT_TRUE(WaitForTracking());
  EXPECT_TRUE(altaz.IsTrackingLoopRunning());
}

}  // namespace
}  // namespace scopemount
