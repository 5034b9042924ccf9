// Manual motion handing back to tracking, a tracking start cut short by a
// GOTO, a one-star alignment and disconnecting at any moment, on the two
// simulators through the C boundary.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <random>

#include "geometry/altaz_mount.h"
#include "geometry/askew_model.h"
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

// --- Alignment and disconnecting ------------------------------------------------

// The one alignment that starts tracking, end to end: the encoders read
// 1.5 degrees east and 0.7 degrees low of the truth.
TEST(AltAzSimulator, OneStarAlignmentCorrectsEncoderOffsetsAndStartsTracking) {
  SimulatorSession session(SCOPE_MODEL_ALTAZ_SIMULATOR, 0.6, 300.0);
  const AnglePair offset{1.5 * DEG, -0.7 * DEG};
  const AnglePair star{-2 * HOUR, 20 * DEG};
  const AnglePair nominal = SkyToAxes(star);
  const double observation[4] = {star.lon, star.lat, nominal.lon + offset.lon,
                                 nominal.lat + offset.lat};
  ASSERT_EQ(ScopeAlignOneStar(observation), SCOPE_OK);
  EXPECT_EQ(ScopeGetAlignmentQuality(nullptr), 100);
  ASSERT_TRUE(WaitForTracking()) << "a one-star alignment starts tracking";

  // A GOTO elsewhere lands where the askew encoders put the star.
  const AnglePair other{1 * HOUR, 45 * DEG};
  const uint32_t requested = Tick();
  ASSERT_EQ(ScopeGotoEquatorial(other.lon, other.lat), SCOPE_OK);
  ASSERT_TRUE(WaitForTracking());
  EXPECT_LE(TrackedError(ReadSky(), other, requested), ALTAZ_TOLERANCE);
  const AnglePair axes = AxisPositions();
  const AnglePair nominalThere = AxesOf(*Simulator(SCOPE_MODEL_ALTAZ_SIMULATOR, 0.6),
                                        Turned(other, SecondsBetween(requested, Tick())));
  EXPECT_NEAR(NormalizeAngle(axes.lon - nominalThere.lon), offset.lon, 0.1 * DEG);
  EXPECT_NEAR(axes.lat - nominalThere.lat, offset.lat, 0.1 * DEG);
}

class DisconnectAnyMoment : public ::testing::TestWithParam<int32_t> {};

// Starts one kind of work that takes time; every kind meets a backlash
// take-up (7.5 s on axis 0) where it reverses an axis.
void StartActivity(int kind) {
  const double star[4] = {-2 * HOUR, 20 * DEG, 0.3, 0.4};
  ASSERT_EQ(ScopeSetBacklash(0, 2 * DEG), SCOPE_OK);
  ASSERT_EQ(ScopeSetBacklash(1, 0.01), SCOPE_OK);
  switch (kind) {
    case 0: ASSERT_EQ(ScopeGotoEquatorial(-4 * HOUR, 10 * DEG), SCOPE_OK); break;
    case 1: ASSERT_EQ(ScopeGotoAxes(2.0, 0.8), SCOPE_OK); break;
    case 2:
      ASSERT_EQ(ScopeMoveAxis(0, 0.01), SCOPE_OK);
      ASSERT_EQ(ScopeMoveAxis(1, -0.01), SCOPE_OK);
      break;
    case 3: ASSERT_EQ(ScopeSetTracking(1), SCOPE_OK); break;
    case 4: ASSERT_EQ(ScopeAlignOneStar(star), SCOPE_OK); break;
    case 5: ASSERT_EQ(ScopeMoveAxis(0, -SIDEREAL_RATE), SCOPE_OK); break;
    default:  // a second GOTO takes over from the first
      ASSERT_EQ(ScopeGotoEquatorial(-1 * HOUR, 0.0), SCOPE_OK);
      ASSERT_EQ(ScopeGotoAxes(-1.0, 0.3), SCOPE_OK);
      break;
  }
}

TEST_P(DisconnectAnyMoment, EndsEveryActivityPromptly) {
  const int32_t model = GetParam();
  std::mt19937 random(20261123u + static_cast<uint32_t>(model));
  std::uniform_int_distribution<uint32_t> testMs(0, 4000);
  constexpr int ROUNDS = 42;
  constexpr int ACTIVITIES = 7;
  for (int round = 0; round < ROUNDS; ++round) {
    SCOPED_TRACE(round);
    SimulatorSession session(model, round % 2 == 0 ? 0.6 : -0.6, 500.0);
    StartActivity(round % ACTIVITIES);
    if (round % 3 == 0) StartActivity(static_cast<int>(testMs(random) % ACTIVITIES));
    // Polled like a host until the random moment of the disconnect.
    const uint32_t start = Tick(), wait = round < ACTIVITIES ? 0 : testMs(random);
    ASSERT_TRUE(WaitUntil([&] {
      MountState();
      return Tick() - start >= wait;
    }));
    // Within the design's waits (3000 ms + 2000 ms of test time), with room
    // for a loaded machine.
    EXPECT_LT(DisconnectOnceWorkersEnd(), std::chrono::seconds(5));
    EXPECT_EQ(ScopeIsEquatorial(), SCOPE_NOT_CONNECTED);
  }
}

INSTANTIATE_TEST_SUITE_P(Simulators, DisconnectAnyMoment, BOTH_SIMULATORS, SimulatorName);

}  // namespace
}  // namespace scopemount
