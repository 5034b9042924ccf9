// What a user checks on the two simulators: a GOTO reads back its sky
// position, tracking holds it for an hour, the altitude limits refuse
// targets without moving anything, and the mount state says what is
// happening all along.
#include <gtest/gtest.h>

#include <cmath>
#include <set>
#include <string>
#include <tuple>

#include "geometry/simulator_session.h"
#include "mount/mount.h"

namespace scopemount {
namespace {

using namespace testing;

// Slews of up to a minute of test time take a fraction of a second; the
// threads' scheduling delays stay small against the arrival tolerances.
constexpr double SLEW_SPEED_UP = 300.0;
// An hour of equatorial tracking in a fifth of a second: one constant rate.
constexpr double EQUATORIAL_TRACKING_SPEED_UP = 20000.0;
constexpr uint32_t ONE_HOUR_MS = 3600000;
// The unaligned Alt/Az loop integrates the sky's path in open 10 s steps: a
// thread stalled on a busy machine stretches a step by the stall times the
// clock's speed, and the error grows with the step. An eighth of an hour at
// 250x takes 1.8 s, and a 20 ms stall is a 5 s step. A rate 20% off would
// still miss by 0.4 degrees.
constexpr double ALTAZ_TRACKING_SPEED_UP = 250.0;
constexpr uint32_t ALTAZ_TRACKED_MS = ONE_HOUR_MS / 8;

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

// Tracking for a simulated hour (Alt/Az: an eighth) from a synced position:
// the mount still reads back the position tracking anchored, turned with the
// sky.
class TrackedForAnHour : public SkyTargets {};

TEST_P(TrackedForAnHour, HoldsTheSkyPosition) {
  SimulatorSession session(Model(), Latitude(),
                           Model() == SCOPE_MODEL_ALTAZ_SIMULATOR ? ALTAZ_TRACKING_SPEED_UP
                                                                  : EQUATORIAL_TRACKING_SPEED_UP);
  const AnglePair target = Sky();
  const AnglePair axes = SkyToAxes(target);
  ASSERT_EQ(ScopeSyncAxis(0, axes.lon), SCOPE_OK);
  ASSERT_EQ(ScopeSyncAxis(1, axes.lat), SCOPE_OK);
  ASSERT_EQ(ScopeSetTracking(1), SCOPE_OK);
  ASSERT_TRUE(WaitForTracking());
  Mount& mount = *CurrentMount();
  const AnglePair anchor{mount.trackStartSky[0], mount.trackStartSky[1]};
  const uint32_t anchored = mount.trackStartTick;
  // Standing axes hold an hour angle: tracking anchored on the target itself,
  // however long the thread took to start.
  EXPECT_LT(Separation(anchor, target), 1e-7);

  const uint32_t tracked =
      Model() == SCOPE_MODEL_ALTAZ_SIMULATOR ? ALTAZ_TRACKED_MS : ONE_HOUR_MS;
  ASSERT_TRUE(WaitUntil([&] { return Tick() - anchored >= tracked; }));
  EXPECT_EQ(MountState(), SCOPE_STATE_TRACKING);
  const TimedReading reading = ReadSky();
  EXPECT_LE(TrackedError(reading, anchor, anchored), GotoToleranceOf(Model()))
      << "after " << SecondsBetween(anchored, reading.before) << " s";
}

std::string TargetName(const ::testing::TestParamInfo<Target>& info) {
  const auto& [model, sign, target] = info.param;
  return std::string(ModelName(model)) + (sign > 0 ? "North" : "South") +
         (target.hours > 0 ? "West" : "East") + std::to_string(info.index);
}

const auto BOTH_HEMISPHERES = ::testing::Values(1.0, -1.0);

INSTANTIATE_TEST_SUITE_P(BothSimulatorsBothHemispheres, SkyTargets,
                         ::testing::Combine(BOTH_SIMULATORS, BOTH_HEMISPHERES,
                                            ::testing::ValuesIn(SKY_TARGETS)),
                         TargetName);
INSTANTIATE_TEST_SUITE_P(EquatorialBothHemispheres, TrackedForAnHour,
                         ::testing::Combine(::testing::Values(SCOPE_MODEL_EQUATORIAL_SIMULATOR),
                                            BOTH_HEMISPHERES, ::testing::ValuesIn(SKY_TARGETS)),
                         TargetName);
// The Alt/Az loop runs slower: one target per declination,
// hemispheres alternating.
INSTANTIATE_TEST_SUITE_P(
    AltAzThreeDeclinations, TrackedForAnHour,
    ::testing::Values(Target{SCOPE_MODEL_ALTAZ_SIMULATOR, 1.0, SKY_TARGETS[0]},
                      Target{SCOPE_MODEL_ALTAZ_SIMULATOR, -1.0, SKY_TARGETS[1]},
                      Target{SCOPE_MODEL_ALTAZ_SIMULATOR, 1.0, SKY_TARGETS[2]}),
    TargetName);

class BothSimulators : public ::testing::TestWithParam<int32_t> {};

TEST_P(BothSimulators, TargetsBeyondTheAltitudeLimitsAreRefusedAndNothingMoves) {
  const int32_t model = GetParam();
  SimulatorSession session(model, 0.6, SLEW_SPEED_UP);
  const AnglePair home = AxisPositions();
  // Hour angle 0: altitude = 90 degrees - |latitude - declination|.
  const double latitude = 0.6;
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
  EXPECT_EQ(AxisStatus(0), SCOPE_AXIS_STOPPED);
  EXPECT_EQ(AxisStatus(1), SCOPE_AXIS_STOPPED);
  const AnglePair now = AxisPositions();
  EXPECT_EQ(now.lon, home.lon);
  EXPECT_EQ(now.lat, home.lat);
  EXPECT_EQ(CurrentMount()->References(), 1u) << "no worker was started";
}

// The first GOTO's worker may start only after the second's holds the axes:
// it must leave them to the newer request, not interrupt it and drop both.
TEST_P(BothSimulators, AGotoIssuedAtOnceAfterAnotherArrivesAtItsTarget) {
  SimulatorSession session(GetParam(), 0.6, SLEW_SPEED_UP);
  const AnglePair replaced{-4 * HOUR, -5 * DEG};
  const AnglePair target{-2 * HOUR, 20 * DEG};
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(ScopeGotoEquatorial(replaced.lon, replaced.lat), SCOPE_OK);
    const uint32_t requested = Tick();
    ASSERT_EQ(ScopeGotoEquatorial(target.lon, target.lat), SCOPE_OK);
    ASSERT_TRUE(WaitForTracking()) << "round " << round << ": the second GOTO was dropped";
    // At the second target (the arrival's precision is the other tests'
    // business), not at the first or where it stood.
    EXPECT_LE(TrackedError(ReadSky(), target, requested), 1 * DEG) << "round " << round;
  }
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

TEST_P(BothSimulators, ConnectsStandingAtHome) {
  const int32_t model = GetParam();
  const bool equatorial = model == SCOPE_MODEL_EQUATORIAL_SIMULATOR;
  SimulatorSession session(model, 0.6, SLEW_SPEED_UP);
  EXPECT_EQ(ScopeIsEquatorial(), equatorial ? 1 : 0);
  const AnglePair home = AxisPositions();
  EXPECT_EQ(home.lon, equatorial ? -HALF_PI : 0.0);
  EXPECT_EQ(home.lat, equatorial ? HALF_PI : 0.0);
  EXPECT_EQ(MountState(), SCOPE_STATE_IDLE);
  EXPECT_EQ(AxisStatus(0) | AxisStatus(1), SCOPE_AXIS_STOPPED);
  EXPECT_EQ(ScopeSetExtraMode(1), equatorial ? SCOPE_OK : SCOPE_NOT_IMPLEMENTED);
}

INSTANTIATE_TEST_SUITE_P(Simulators, BothSimulators, BOTH_SIMULATORS, SimulatorName);

}  // namespace
}  // namespace scopemount
