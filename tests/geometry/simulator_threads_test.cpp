// What a user checks on the two simulators through the C boundary: a GOTO
// reads back its sky position and tracking holds it, the altitude limits
// refuse targets without moving anything, manual motion hands back to
// tracking, a one-star alignment corrects the encoders, and a disconnect
// at any moment ends whatever runs.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <random>
#include <set>
#include <string>
#include <tuple>

#include "geometry/altaz_mount.h"
#include "geometry/askew_model.h"
#include "geometry/simulator_session.h"
#include "mount/mount.h"

namespace scopemount {
namespace {

using namespace testing;

// Slews of up to a minute of test time take a fraction of a second; the
// threads' scheduling delays stay small against the arrival tolerances.
constexpr double SLEW_SPEED_UP = 300.0;

// --- GOTO and tracking ----------------------------------------------------------

// Targets east and west of the meridian at three declinations (degrees, for
// the northern site; the southern site mirrors the declination).
struct SkyTarget {
  double hours;
  double declination;
};
constexpr SkyTarget SKY_TARGETS[] = {{-2.0, -10.0}, {1.5, 30.0}, {-3.0, 70.0}};

// Model, latitude sign, target.
using Target = std::tuple<int32_t, double, SkyTarget>;

class SkyTargets : public ::testing::TestWithParam<Target> {
 protected:
  int32_t Model() const { return std::get<0>(GetParam()); }
  double Latitude() const { return std::get<1>(GetParam()) * 0.6; }
  AnglePair Sky() const {
    const double sign = std::get<1>(GetParam());
    const SkyTarget& target = std::get<2>(GetParam());
    return {target.hours * HOUR, sign * target.declination * DEG};
  }
};

TEST_P(SkyTargets, GotoReadsBackTheSkyPositionAndStartsTracking) {
  SimulatorSession session(Model(), Latitude(), SLEW_SPEED_UP);
  const AnglePair target = Sky();
  const uint32_t requested = Tick();
  ASSERT_EQ(ScopeGotoEquatorial(target.lon, target.lat), SCOPE_OK);
  // Polled during the slew (which takes about a tenth of a second here).
  std::set<uint32_t> states;
  EXPECT_TRUE(WaitUntil([&] {
    states.insert(MountState());
    return states.count(SCOPE_STATE_SLEWING) != 0;
  })) << "slewing was never reported";
  EXPECT_FALSE(states.count(SCOPE_STATE_MOVING)) << "a GOTO is not a manual motion";
  EXPECT_FALSE(states.count(SCOPE_STATE_TRACKING)) << "no tracking before arrival";
  ASSERT_TRUE(WaitForTracking()) << "the GOTO never ended in tracking";

  const TimedReading reading = ReadSky();
  EXPECT_LE(TrackedError(reading, target, requested), GotoToleranceOf(Model()))
      << "read back " << reading.sky.lon << ", " << reading.sky.lat;
  // Equatorial tracking runs only the hour-angle axis, backwards in the south.
  if (Model() == SCOPE_MODEL_EQUATORIAL_SIMULATOR) {
    const uint32_t positive = Latitude() > 0.0 ? SCOPE_AXIS_POSITIVE : 0u;
    EXPECT_EQ(AxisStatus(0), SCOPE_AXIS_RUNNING | positive);
    EXPECT_EQ(AxisStatus(1), SCOPE_AXIS_STOPPED);
  }

  // Tracking keeps it there.
  WaitTestTime(30000);
  EXPECT_LE(TrackedError(ReadSky(), target, requested), GotoToleranceOf(Model()));
}

std::string TargetName(const ::testing::TestParamInfo<Target>& info) {
  const auto& [model, sign, target] = info.param;
  return std::string(ModelName(model)) + (sign > 0 ? "North" : "South") +
         (target.hours > 0 ? "West" : "East") + std::to_string(info.index);
}

INSTANTIATE_TEST_SUITE_P(BothSimulatorsBothHemispheres, SkyTargets,
                         ::testing::Combine(BOTH_SIMULATORS, ::testing::Values(1.0, -1.0),
                                            ::testing::ValuesIn(SKY_TARGETS)),
                         TargetName);

// --- Both simulators --------------------------------------------------------------

class BothSimulators : public ::testing::TestWithParam<int32_t> {};

TEST_P(BothSimulators, StandAtHomeAndRefuseTargetsBeyondTheAltitudeLimits) {
  const int32_t model = GetParam();
  const bool equatorial = model == SCOPE_MODEL_EQUATORIAL_SIMULATOR;
  const double latitude = 0.6;
  SimulatorSession session(model, latitude, SLEW_SPEED_UP);
  EXPECT_EQ(ScopeIsEquatorial(), equatorial ? 1 : 0);
  EXPECT_EQ(ScopeSetExtraMode(1), equatorial ? SCOPE_OK : SCOPE_NOT_IMPLEMENTED);
  const AnglePair home = AxisPositions();
  EXPECT_EQ(home.lon, equatorial ? -HALF_PI : 0.0);
  EXPECT_EQ(home.lat, equatorial ? HALF_PI : 0.0);

  // Hour angle 0: altitude = 90 degrees - |latitude - declination|.
  EXPECT_EQ(ScopeGotoEquatorial(0.0, latitude - 10 * DEG), SCOPE_TARGET_TOO_HIGH) << "80 up";
  EXPECT_EQ(ScopeGotoEquatorial(0.0, latitude - 95 * DEG), SCOPE_TARGET_TOO_LOW) << "5 down";
  EXPECT_EQ(ScopeGotoEquatorial(PI, 0.0), SCOPE_TARGET_TOO_LOW) << "below the north point";
  EXPECT_EQ(ScopeGotoHorizontal(1.0, 80 * DEG), SCOPE_TARGET_TOO_HIGH);
  EXPECT_EQ(ScopeGotoHorizontal(1.0, -1 * DEG), SCOPE_TARGET_TOO_LOW);
  EXPECT_EQ(ScopeGotoOffset(0.0, latitude - 20 * DEG, 0.0, 15 * DEG), SCOPE_TARGET_TOO_HIGH)
      << "the offset lifts the target over the limit";
  ASSERT_EQ(ScopeSetAltitudeLimits(20 * DEG, 60 * DEG), SCOPE_OK);
  EXPECT_EQ(ScopeGotoHorizontal(1.0, 15 * DEG), SCOPE_TARGET_TOO_LOW);
  EXPECT_EQ(ScopeGotoHorizontal(1.0, 65 * DEG), SCOPE_TARGET_TOO_HIGH);

  WaitTestTime(5000);
  EXPECT_EQ(MountState(), SCOPE_STATE_IDLE);
  EXPECT_EQ(AxisStatus(0) | AxisStatus(1), SCOPE_AXIS_STOPPED);
  const AnglePair now = AxisPositions();
  EXPECT_EQ(now.lon, home.lon);
  EXPECT_EQ(now.lat, home.lat);
  EXPECT_EQ(CurrentMount()->References(), 1u) << "no worker was started";
}

TEST_P(BothSimulators, HorizontalAxesAndOffsetGotos) {
  const int32_t model = GetParam();
  SimulatorSession session(model, 0.6, SLEW_SPEED_UP);
  const double tolerance = GotoToleranceOf(model);

  // A horizontal GOTO ends where the horizontal position reads it, and stays.
  ASSERT_EQ(ScopeGotoHorizontal(-2.0, 40 * DEG), SCOPE_OK);
  ASSERT_TRUE(WaitForWorkers());
  WaitTestTime(10000);
  EXPECT_EQ(MountState(), SCOPE_STATE_IDLE) << "a horizontal GOTO does not track";
  EXPECT_LE(Separation(HorizontalPosition(), {-2.0, 40 * DEG}), tolerance);

  // Axis targets are taken as given, even past half a turn.
  const double far = model == SCOPE_MODEL_ALTAZ_SIMULATOR ? 3.5 : 0.5;
  ASSERT_EQ(ScopeGotoAxes(far, 0.3), SCOPE_OK);
  ASSERT_TRUE(WaitForWorkers());
  EXPECT_EQ(MountState(), SCOPE_STATE_IDLE);
  AnglePair axes = AxisPositions();
  EXPECT_NEAR(axes.lon, far, tolerance);
  EXPECT_NEAR(axes.lat, 0.3, tolerance);

  // One axis: the other stays put.
  ASSERT_EQ(ScopeSlewAxis(1, 0.5), SCOPE_OK);
  ASSERT_TRUE(WaitForWorkers());
  EXPECT_EQ(MountState(), SCOPE_STATE_IDLE);
  const AnglePair slewed = AxisPositions();
  EXPECT_EQ(slewed.lon, axes.lon);
  EXPECT_NEAR(slewed.lat, 0.5, tolerance);

  // Offsets are axis angles around the sky position.
  const AnglePair sky{-1 * HOUR, 20 * DEG};
  const uint32_t requested = Tick();
  ASSERT_EQ(ScopeGotoOffset(sky.lon, sky.lat, 1 * DEG, -0.5 * DEG), SCOPE_OK);
  ASSERT_TRUE(WaitForTracking());
  const uint32_t before = Tick();
  axes = AxisPositions();
  const AnglePair expected = SkyToAxes(Turned(sky, SecondsBetween(requested, before)));
  // The axes hold the sky of some moment since the request (the last
  // correction pass or tracking cycle), so allow the sky's motion since then.
  EXPECT_LE(Separation(axes, {expected.lon + 1 * DEG, expected.lat - 0.5 * DEG}),
            tolerance + SIDEREAL_RATE * SecondsBetween(requested, Tick()) * 2.0);
}

INSTANTIATE_TEST_SUITE_P(Simulators, BothSimulators, BOTH_SIMULATORS, SimulatorName);

// --- Manual motion and tracking ---------------------------------------------------

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
