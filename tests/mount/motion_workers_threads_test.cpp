// The motion workers on the simulated mount: the commands each pass issues,
// the approach rules, hand-overs between workers and the failure paths.
#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

#include "mount/motion_workers.h"
#include "support/angles.h"
#include "support/fast_clock.h"
#include "support/test_mount.h"

namespace scopemount {
namespace {

using testing::Command;
using testing::CommandRecord;
using testing::Geometry;
using testing::MountStatus;
using testing::ScopedFastClock;
using testing::TestMount;
using testing::WaitUntil;

constexpr double CLOCK_SPEED = 20.0;

// The commands of one kind on one axis recorded since `from`.
std::vector<double> Values(const TestMount& mount, Command kind, uint32_t axis, size_t from = 0) {
  std::vector<double> values;
  const std::vector<CommandRecord> all = mount.Commands();
  for (size_t i = from; i < all.size(); ++i) {
    if (all[i].command == kind && all[i].axis == axis) values.push_back(all[i].value);
  }
  return values;
}

std::vector<Command> KindsSince(const TestMount& mount, size_t from) {
  std::vector<Command> kinds;
  const std::vector<CommandRecord> all = mount.Commands();
  for (size_t i = from; i < all.size(); ++i) kinds.push_back(all[i].command);
  return kinds;
}

class MotionWorkers : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(mount->SetSite(0.6, 0), Ok);
    mount->SetSlewParameters(0.0, 2 * DEG, DEFAULT_GOTO_TOLERANCE, 2.0);
  }
  void TearDown() override {
    mount.reset();
    EXPECT_TRUE(WaitUntil([] { return TestMount::liveCount == 0; })) << "a mount was never freed";
  }

  bool SlewDone() { return mount->SlewFinished(); }
  void GotoAxesAndWait(double angle0, double angle1) {
    ASSERT_EQ(mount->GotoAxes(angle0, angle1), Ok);
    ASSERT_TRUE(WaitUntil([this] { return SlewDone(); }));
  }
  bool SlewTo(uint32_t axis) { return !Values(*mount, Command::SlewTo, axis).empty(); }

  ScopedFastClock fast{CLOCK_SPEED};
  OwnedMount<TestMount> mount{new TestMount(Geometry::Equatorial, 6)};
};

TEST_F(MotionWorkers, EquatorialGotoChasesTheSkyThenTracks) {
  // Slow enough that the sky turns well past the tolerance and the lead.
  mount->SetSlewSpeed(4 * DEG);
  mount->PlaceAxes(-0.8, 0.1);
  const AnglePair target{0.6, 0.2};
  ASSERT_EQ(mount->GotoEquatorial(target), Ok);
  const uint32_t requested = mount->gotoStartTick;
  bool sawSlewing = false;
  ASSERT_TRUE(WaitUntil([&] {
    const uint32_t status = MountStatus(*mount);
    sawSlewing = sawSlewing || status == STATE_SLEWING;
    return status == STATE_TRACKING;
  }));
  EXPECT_TRUE(sawSlewing) << "the status showed the slew";

  const std::vector<CommandRecord> commands = mount->Commands();
  ASSERT_GE(commands.size(), 4u);
  EXPECT_EQ(commands.front().command, Command::PrepareSlew);
  EXPECT_EQ(commands.back().command, Command::SetRate) << "tracking starts after the slew";
  EXPECT_EQ(commands.back().axis, 0u);
  EXPECT_EQ(commands.back().value, SIDEREAL_RATE);
  const std::vector<double> axis0 = Values(*mount, Command::SlewTo, 0);
  ASSERT_GE(axis0.size(), 2u) << "a second pass catches up with the sky";
  EXPECT_LE(axis0.size(), static_cast<size_t>(SLEW_PASS_COUNT));
  EXPECT_GT(axis0[1], axis0[0]) << "each pass aims where the sky has turned to";
  EXPECT_EQ(mount->axisDirection[1], 1u);
  EXPECT_EQ(mount->trackingWanted, 1u);

  // Arrived where the target stood when the last pass ended, give or take
  // the tracking since.
  AnglePair sky;
  ASSERT_EQ(mount->GetSkyPosition(&sky), Ok);
  const double turned =
      static_cast<double>(platform::TickCount() - requested) / 1000.0 * SIDEREAL_RATE;
  EXPECT_LT(AngularSeparation(sky.lon, sky.lat, target.lon + turned, target.lat),
            2 * DEFAULT_GOTO_TOLERANCE);
}

TEST_F(MotionWorkers, NegativeMovesOvershootAndComeBackPositive) {
  mount->PlaceAxes(0.5, 0.2);
  GotoAxesAndWait(0.5 - 10 * DEG, 0.2);
  const std::vector<double> axis0 = Values(*mount, Command::SlewTo, 0);
  ASSERT_EQ(axis0.size(), 2u);
  EXPECT_NEAR(axis0[0], 0.5 - 12 * DEG, 1e-12) << "2 degrees past the target";
  EXPECT_NEAR(axis0[1], 0.5 - 10 * DEG, 1e-12) << "then the target itself, moving positive";
  EXPECT_TRUE(Values(*mount, Command::SlewTo, 1).empty()) << "axis 1 stood within tolerance";
  EXPECT_EQ(mount->axisDirection[0], 1u);
  EXPECT_EQ(MountStatus(*mount), STATE_IDLE) << "no tracking after an axis-target slew";
  EXPECT_EQ(mount->trackingWanted, 0u);
}

TEST_F(MotionWorkers, LongPositiveMovesStopTheMarginShort) {
  mount->SetSlewParameters(2 * DEG, 2 * DEG, DEFAULT_GOTO_TOLERANCE, 0.0);
  mount->PlaceAxes(0.0, 0.0);
  GotoAxesAndWait(2.4 * DEG, 0.0);
  std::vector<double> axis0 = Values(*mount, Command::SlewTo, 0);
  ASSERT_EQ(axis0.size(), 1u) << "2.4 degrees is not above 1.2 margins: commanded in full";
  EXPECT_NEAR(axis0[0], 2.4 * DEG, 1e-12);

  const size_t from = mount->CommandCount();
  GotoAxesAndWait(4.9 * DEG, 0.0);
  axis0 = Values(*mount, Command::SlewTo, 0, from);
  ASSERT_EQ(axis0.size(), 2u);
  EXPECT_NEAR(axis0[0], 2.9 * DEG, 1e-12) << "2.5 degrees: stop the margin short";
  EXPECT_NEAR(axis0[1], 4.9 * DEG, 1e-12);
}

TEST_F(MotionWorkers, SecondAxisStaysBelowHalfATurnWhenLimited) {
  mount->limitSecondAxisTravel = 1;
  mount->SetSlewSpeed(40 * DEG);  // long moves, quickly
  mount->PlaceAxes(0.0, -1.0);
  GotoAxesAndWait(0.0, -1.0 + 200 * DEG);
  std::vector<double> axis1 = Values(*mount, Command::SlewTo, 1);
  ASSERT_EQ(axis1.size(), 2u);
  EXPECT_NEAR(axis1[0], -1.0 + 179 * DEG, 1e-12);
  EXPECT_NEAR(axis1[1], -1.0 + 200 * DEG, 1e-12);

  mount->limitSecondAxisTravel = 0;
  const size_t from = mount->CommandCount();
  GotoAxesAndWait(0.0, -1.0);
  axis1 = Values(*mount, Command::SlewTo, 1, from);
  ASSERT_EQ(axis1.size(), 2u) << "a negative move overshoots and comes back";
  EXPECT_NEAR(axis1[0], -1.0 - 2 * DEG, 1e-12) << "the whole 200 degrees at once";
}

TEST_F(MotionWorkers, GotoWhereTheMountStandsOnlyStartsTracking) {
  mount->PlaceAxes(0.4, 0.3);  // the equatorial frame: axes = (hour angle, declination)
  mount->axisDirection[0] = 0;
  mount->axisDirection[1] = 0;
  ASSERT_EQ(mount->GotoEquatorial({0.4, 0.3}), Ok);
  ASSERT_TRUE(WaitUntil([this] { return MountStatus(*mount) == STATE_TRACKING; }));
  EXPECT_EQ(KindsSince(*mount, 0), (std::vector<Command>{Command::PrepareSlew, Command::SetRate}));
  EXPECT_EQ(mount->axisDirection[1], 1u) << "counted as a positive approach";
}

TEST_F(MotionWorkers, StopAxisDuringGotoStopsBothAxesAndNoTracking) {
  mount->PlaceAxes(-1.0, 0.1);
  ASSERT_EQ(mount->GotoEquatorial({0.6, 0.2}), Ok);
  ASSERT_TRUE(WaitUntil([this] { return SlewTo(0); }));
  const size_t from = mount->CommandCount();
  EXPECT_EQ(mount->StopAxis(1), Ok);
  EXPECT_TRUE(mount->workerIdleEvent.IsSignalled()) << "the worker gave up within the wait";
  EXPECT_EQ(KindsSince(*mount, from),
            (std::vector<Command>{Command::Stop, Command::Stop, Command::Stop}));
  EXPECT_EQ(MountStatus(*mount), STATE_IDLE);
  EXPECT_EQ(mount->trackingWanted, 0u);
  uint32_t status = 0;
  for (uint32_t axis : {0u, 1u}) {
    mount->GetAxisStatus(axis, &status);
    EXPECT_EQ(status, AXIS_STOPPED) << axis;
  }
  EXPECT_TRUE(Values(*mount, Command::SetRate, 0).empty()) << "tracking never started";
}

TEST_F(MotionWorkers, FailedCommandEndsTheSlewLeavingTheAxesAsCommanded) {
  mount->PlaceAxes(0.0, 0.0);
  mount->SetSilent(0, true);
  ASSERT_EQ(mount->GotoAxes(-0.2, 0.3), Ok);
  ASSERT_TRUE(WaitUntil([this] { return SlewDone(); }));
  EXPECT_EQ(Values(*mount, Command::SlewTo, 1), std::vector<double>{0.3});
  EXPECT_TRUE(mount->Commands(Command::Stop).empty()) << "nothing is stopped after a failure";
  ASSERT_TRUE(WaitUntil([this] { return mount->TrueAngle(1) == 0.3; }))
      << "axis 1 carries on to where it was sent";
  double angle = 0.0;
  EXPECT_EQ(mount->GetAxisPosition(0, &angle), NoResponseAxis1);

  mount->SetSilent(0, false);
  GotoAxesAndWait(-0.2, 0.3);
  EXPECT_NEAR(mount->TrueAngle(0), -0.2, DEFAULT_GOTO_TOLERANCE) << "usable again";
}

TEST_F(MotionWorkers, GotoThatFailsBeforeMovingEndsIdleWithoutTracking) {
  struct Case {
    const char* name;
    int32_t prepareResult;
    uint32_t silentAxis;  // AXIS_COUNT: none
  };
  const Case cases[] = {
      {"PrepareSlew fails", NoResponseAxis1, AXIS_COUNT},
      {"the axis-1 command fails (axis 1 is commanded first)", Ok, 1},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const size_t from = mount->CommandCount();
    mount->PlaceAxes(-1.0, 0.1);
    mount->prepareSlewResult = c.prepareResult;
    if (c.silentAxis < AXIS_COUNT) mount->SetSilent(c.silentAxis, true);
    ASSERT_EQ(mount->GotoEquatorial({0.6, 0.2}), Ok);
    ASSERT_TRUE(WaitUntil([this] { return SlewDone() && mount->References() == 1; }));
    EXPECT_EQ(KindsSince(*mount, from), std::vector<Command>{Command::PrepareSlew})
        << "no axis moved, none was stopped, tracking did not start";
    EXPECT_EQ(MountStatus(*mount), STATE_IDLE);
    EXPECT_EQ(mount->trackingWanted, 0u);

    mount->prepareSlewResult = Ok;
    if (c.silentAxis < AXIS_COUNT) mount->SetSilent(c.silentAxis, false);
    ASSERT_EQ(mount->GotoEquatorial({0.6, 0.2}), Ok);
    ASSERT_TRUE(WaitUntil([this] { return MountStatus(*mount) == STATE_TRACKING; }));
    ASSERT_EQ(mount->SetTracking(0), Ok);
  }
}

// Once a release has begun no worker starts: every operation that would
// start one leaves the axes free and the mount idle, so the release (and
// any halt) has nothing to wait for.
TEST_F(MotionWorkers, NoWorkerStartsOnceTheMountIsBeingReleased) {
  OwnedMount<TestMount> altaz(new TestMount(Geometry::AltAz, 7));
  struct Case {
    const char* name;
    int32_t (*start)(TestMount&);
  };
  const Case cases[] = {
      {"GotoEquatorial", [](TestMount& m) { return m.GotoEquatorial({0.3, 0.2}); }},
      {"GotoAxes", [](TestMount& m) { return m.GotoAxes(0.3, 0.2); }},
      {"MoveAxis", [](TestMount& m) { return m.MoveAxis(1, 0.01); }},
      {"StartTracking", [](TestMount& m) { return m.StartTracking(); }},
  };
  mount->StopWorkersForRelease();
  altaz->StopWorkersForRelease();
  for (TestMount* m : {mount.get(), altaz.get()}) {
    for (const Case& c : cases) {
      SCOPED_TRACE(std::string(c.name) + (m == altaz.get() ? " on Alt/Az" : " on equatorial"));
      EXPECT_EQ(c.start(*m), Ok);
      EXPECT_EQ(m->workerStarts, 0u);
      EXPECT_EQ(m->References(), 1u);
      EXPECT_EQ(m->axisRunFlag[0] | m->axisRunFlag[1], 0u) << "the run flags are free again";
      EXPECT_FALSE(m->altAzTracking.IsStartingOrRunning());
      EXPECT_EQ(MountStatus(*m), STATE_IDLE);
    }
  }
  EXPECT_EQ(mount->CommandCount() + altaz->CommandCount(), 0u);
}

TEST_F(MotionWorkers, AxisThatStopsAnsweringMidPassLeavesTheMountUsable) {
  mount->PlaceAxes(-1.0, -0.5);
  ASSERT_EQ(mount->GotoEquatorial({0.6, 0.2}), Ok);
  ASSERT_TRUE(WaitUntil([this] { return SlewTo(1); }));
  mount->SetSilent(1, true);
  ASSERT_TRUE(WaitUntil([this] { return SlewDone(); })) << "the worker gives up by itself";
  EXPECT_TRUE(mount->Commands(Command::Stop).empty());
  EXPECT_EQ(mount->trackingWanted, 0u) << "no tracking after a failed slew";
  double angle = 0.0;
  EXPECT_EQ(mount->GetAxisPosition(1, &angle), NoResponseAxis2);
  uint32_t status = 0;
  EXPECT_EQ(mount->GetMountStatus(&status), Ok) << "status still reports";

  mount->SetSilent(1, false);
  ASSERT_EQ(mount->GotoEquatorial({0.6, 0.2}), Ok);
  ASSERT_TRUE(WaitUntil([this] { return MountStatus(*mount) == STATE_TRACKING; }));
}

TEST_F(MotionWorkers, NewGotoTakesOverFromTheRunningOne) {
  mount->PlaceAxes(-1.0, 0.0);
  ASSERT_EQ(mount->GotoAxes(1.0, 0.5), Ok);
  ASSERT_TRUE(WaitUntil([this] { return SlewTo(0); }));
  const size_t from = mount->CommandCount();
  ASSERT_EQ(mount->GotoAxes(-0.5, -0.2), Ok);
  ASSERT_TRUE(WaitUntil([this] { return SlewDone(); }));
  const std::vector<Command> kinds = KindsSince(*mount, from);
  ASSERT_GE(kinds.size(), 3u);
  EXPECT_EQ(kinds[0], Command::Stop) << "the first worker stops both axes";
  EXPECT_EQ(kinds[1], Command::Stop);
  EXPECT_EQ(kinds[2], Command::PrepareSlew) << "only then does the second one start";
  EXPECT_NEAR(mount->TrueAngle(0), -0.5, DEFAULT_GOTO_TOLERANCE);
  EXPECT_NEAR(mount->TrueAngle(1), -0.2, DEFAULT_GOTO_TOLERANCE);
}

TEST_F(MotionWorkers, WorkerThatCannotGiveUpKeepsTheAxesAndReadsTheNewTarget) {
  mount->prepareSlewDelayMs = 5000;
  mount->PlaceAxes(-0.5, 0.1);
  ASSERT_EQ(mount->GotoEquatorial({0.0, 0.1}), Ok);
  ASSERT_TRUE(WaitUntil([this] { return !mount->Commands(Command::PrepareSlew).empty(); }));
  const AnglePair second{0.5, 0.3};
  ASSERT_EQ(mount->GotoEquatorial(second), Ok);
  ASSERT_TRUE(WaitUntil([this] { return MountStatus(*mount) == STATE_TRACKING; }));
  EXPECT_EQ(mount->Commands(Command::PrepareSlew).size(), 1u)
      << "the new worker gave up after 2000 ms without touching the axes";
  AnglePair sky;
  mount->GetSkyPosition(&sky);
  EXPECT_LT(AngularSeparation(sky.lon, sky.lat, second.lon, second.lat), 0.01)
      << "the old worker went on to the new target";
}

TEST_F(MotionWorkers, GotoRefusesTargetsOutsideTheAltitudeLimits) {
  mount->PlaceAxes(0.1, 0.1);
  // At latitude 0.6 the pole stands 0.6 rad high and the meridian point
  // of declination 0.55 about 1.52 rad.
  EXPECT_EQ(mount->GotoEquatorial({0.0, 0.55}), TargetTooHigh);
  EXPECT_EQ(mount->GotoEquatorial({PI, -0.5}), TargetTooLow);
  EXPECT_EQ(mount->GotoHorizontal(0.3, 1.4), TargetTooHigh);
  EXPECT_EQ(mount->GotoHorizontal(0.3, -0.1), TargetTooLow);
  EXPECT_EQ(mount->axisRunFlag[0], 0u);
  EXPECT_EQ(mount->gotoTarget[0], 0.0) << "nothing changed";
  EXPECT_EQ(mount->CommandCount(), 0u);
}

TEST_F(MotionWorkers, ManualMotionTakesUpBacklashOnlyWhenItMatters) {
  const double takeUp = mount->backlashRate;
  // Reversing with 21 ms of backlash: take-up, stop, then the rate.
  mount->backlashTime[0] = 21;
  ASSERT_EQ(mount->MoveAxis(0, -0.001), Ok);
  ASSERT_TRUE(WaitUntil([this] { return Values(*mount, Command::SetRate, 0).size() == 2; }));
  std::vector<CommandRecord> commands = mount->Commands();
  ASSERT_EQ(commands.size(), 3u);
  EXPECT_EQ(commands[0].value, -takeUp);
  EXPECT_EQ(commands[1].command, Command::Stop);
  EXPECT_GE(commands[1].tick - commands[0].tick, 21u) << "ran the whole take-up";
  EXPECT_EQ(commands[2].value, -0.001);
  EXPECT_EQ(MountStatus(*mount), STATE_MOVING);
  ASSERT_EQ(mount->StopAxis(0), Ok);
  EXPECT_EQ(MountStatus(*mount), STATE_IDLE);

  // 20 ms is not worth a take-up.
  mount->backlashTime[0] = 20;
  size_t from = mount->CommandCount();
  ASSERT_EQ(mount->MoveAxis(0, 0.001), Ok);
  ASSERT_TRUE(WaitUntil([&] { return !Values(*mount, Command::SetRate, 0, from).empty(); }));
  EXPECT_EQ(Values(*mount, Command::SetRate, 0, from), std::vector<double>{0.001});
  ASSERT_EQ(mount->StopAxis(0), Ok);

  // Nor is a rate as fast as the take-up itself.
  mount->backlashTime[0] = 21;
  from = mount->CommandCount();
  ASSERT_EQ(mount->MoveAxis(0, -takeUp), Ok);
  ASSERT_TRUE(WaitUntil([&] { return !Values(*mount, Command::SetRate, 0, from).empty(); }));
  EXPECT_EQ(Values(*mount, Command::SetRate, 0, from), std::vector<double>{-takeUp});
  ASSERT_EQ(mount->StopAxis(0), Ok);
}

TEST_F(MotionWorkers, StopAxisEndsABacklashTakeUpEarly) {
  mount->backlashTime[1] = 5000;
  mount->axisDirection[1] = 0;
  ASSERT_EQ(mount->MoveAxis(1, 0.001), Ok);
  ASSERT_TRUE(WaitUntil([this] { return !Values(*mount, Command::SetRate, 1).empty(); }));
  ASSERT_EQ(mount->StopAxis(1), Ok);
  const std::vector<CommandRecord> commands = mount->Commands();
  ASSERT_EQ(commands.size(), 4u);
  EXPECT_EQ(commands[0].value, mount->backlashRate.load());
  EXPECT_EQ(KindsSince(*mount, 1),
            (std::vector<Command>{Command::Stop, Command::Stop, Command::Stop}))
      << "take-up cut short, no rate set, the axis stopped";
  EXPECT_LT(commands.back().tick - commands[0].tick, 5000u);
  EXPECT_EQ(MountStatus(*mount), STATE_IDLE);
}

}  // namespace
}  // namespace scopemount
