// The motion workers on the test mount: the commands each pass issues, the
// approach rules, hand-overs between workers and requests, and the failure
// paths.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

#include "mount/motion_workers.h"
#include "support/angles.h"
#include "support/test_mount_fixture.h"

namespace scopemount {
namespace {

using namespace testing;

constexpr double CLOCK_SPEED = 20.0;
constexpr uint32_t NO_AXIS = AXIS_COUNT;

class MotionWorkers : public testing::TestMountTest {
 protected:
  void SetUp() override { Fresh(); }
  void Fresh(Geometry geometry = Geometry::Equatorial) {
    Make(geometry, CLOCK_SPEED);
    mount->SetSlewParameters(0.0, 2 * DEG, DEFAULT_GOTO_TOLERANCE, 2.0);
  }
  void GotoAxesAndWait(double angle0, double angle1) {
    ASSERT_EQ(mount->GotoAxes(angle0, angle1), Ok);
    ASSERT_TRUE(WaitUntil([this] { return mount->SlewFinished(); }));
  }
  bool SlewTo(uint32_t axis) { return mount->CommandCount(Command::SlewTo, axis) > 0; }
};

TEST_F(MotionWorkers, EquatorialGotoChasesTheSkyThenTracks) {
  // Slow enough that the sky turns well past the tolerance and the lead.
  mount->PlaceAxes(-0.8, 0.1);
  mount->SetSlewSpeed(4 * DEG);
  const AnglePair target{0.6, 0.2};
  ASSERT_EQ(mount->GotoEquatorial(target), Ok);
  const uint32_t requested = mount->gotoStartTick;
  ASSERT_TRUE(WaitUntil([&] { return IsTracking(); }));

  const std::vector<CommandRecord> commands = mount->Commands();
  EXPECT_EQ(commands.front().command, Command::PrepareSlew);
  EXPECT_EQ(commands.back().command, Command::SetRate) << "tracking starts after the slew";
  EXPECT_EQ(commands.back().axis, 0u);
  EXPECT_EQ(commands.back().value, SIDEREAL_RATE);
  const std::vector<CommandRecord> axis0 = mount->Commands(Command::SlewTo, 0);
  ASSERT_GE(axis0.size(), 2u) << "a second pass catches up with the sky";
  EXPECT_LE(axis0.size(), static_cast<size_t>(SLEW_PASS_COUNT));
  EXPECT_GT(axis0[1].value, axis0[0].value) << "each pass aims where the sky has turned to";
  // The first pass leads the sky by the 2 s lead time (plus the few ms before
  // it was commanded), 2 degrees past the target as its move is negative.
  const auto firstPassAt = [&](double seconds) {
    return AxesOf(*mount, {target.lon + seconds * SIDEREAL_RATE, target.lat}).lon - 2 * DEG;
  };
  const double commandedAfter = (axis0[0].tick - requested) / 1000.0;
  EXPECT_GE(axis0[0].value, firstPassAt(2.0) - 1e-12) << "no lead";
  EXPECT_LE(axis0[0].value, firstPassAt(2.0 + commandedAfter) + 1e-12);
  // Arrived where the target stood when the last pass ended, give or take
  // the tracking since.
  AnglePair sky;
  ASSERT_EQ(mount->GetSkyPosition(&sky), Ok);
  const double turned =
      static_cast<double>(platform::TickCount() - requested) / 1000.0 * SIDEREAL_RATE;
  EXPECT_LT(Separation(sky, {target.lon + turned, target.lat}), 2 * DEFAULT_GOTO_TOLERANCE);
}

// Axis-target slews: the passes on the one axis that moves, then no tracking.
TEST_F(MotionWorkers, ApproachRules) {
  struct Case {
    const char* name;
    double margin;
    uint32_t limitSecondAxis;
    AnglePair from, to;
    uint32_t axis;
    std::vector<double> passes;
  };
  const double start1 = -1.0;
  const Case cases[] = {
      {"a negative move overshoots 2 degrees and comes back positive", 0, 0, {0.5, 0.2},
       {0.5 - 10 * DEG, 0.2}, 0, {0.5 - 12 * DEG, 0.5 - 10 * DEG}},
      {"2.4 degrees is not above 1.2 margins: commanded in full", 2 * DEG, 0, {0, 0},
       {2.4 * DEG, 0}, 0, {2.4 * DEG}},
      {"2.5 degrees: stop the margin short", 2 * DEG, 0, {0, 0}, {4.9 * DEG, 0}, 0,
       {2.9 * DEG, 4.9 * DEG}},
      {"a limited second axis stays below half a turn", 0, 1, {0, start1},
       {0, start1 + 200 * DEG}, 1, {start1 + 179 * DEG, start1 + 200 * DEG}},
      {"an unlimited one moves 200 degrees at once", 0, 0, {0, start1 + 200 * DEG},
       {0, start1}, 1, {start1 - 2 * DEG, start1}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Fresh();
    mount->SetSlewParameters(c.margin, 2 * DEG, DEFAULT_GOTO_TOLERANCE, 0.0);
    mount->limitSecondAxisTravel = c.limitSecondAxis;
    mount->PlaceAxes(c.from.lon, c.from.lat);
    mount->SetSlewSpeed(40 * DEG);  // long moves, quickly
    GotoAxesAndWait(c.to.lon, c.to.lat);
    const std::vector<CommandRecord> passes = mount->Commands(Command::SlewTo, c.axis);
    ASSERT_EQ(passes.size(), c.passes.size());
    for (size_t i = 0; i < passes.size(); ++i) EXPECT_NEAR(passes[i].value, c.passes[i], 1e-12);
    EXPECT_FALSE(SlewTo(1 - c.axis)) << "the other axis stood within tolerance";
    EXPECT_EQ(mount->axisDirection[c.axis], 1u) << "the last approach is positive";
    EXPECT_EQ(MountStatus(*mount), STATE_IDLE) << "no tracking after an axis-target slew";
  }
}

TEST_F(MotionWorkers, GotoWhereTheMountStandsOnlyStartsTracking) {
  mount->PlaceAxes(0.4, 0.3);  // the equatorial frame: axes = (hour angle, declination)
  mount->axisDirection[1] = 0;
  ASSERT_EQ(mount->GotoEquatorial({0.4, 0.3}), Ok);
  ASSERT_TRUE(WaitUntil([this] { return IsTracking(); }));
  EXPECT_EQ(mount->KindsSince(0), (std::vector<Command>{Command::PrepareSlew, Command::SetRate}));
  EXPECT_EQ(mount->axisDirection[1], 1u) << "counted as a positive approach";
}

// Either axis stopped on either geometry ends the whole GOTO.
TEST_F(MotionWorkers, StopAxisDuringGotoStopsBothAxesAndNoTracking) {
  for (const Geometry geometry : {Geometry::Equatorial, Geometry::AltAz}) {
    for (const uint32_t axis : {0u, 1u}) {
      SCOPED_TRACE((geometry == Geometry::AltAz ? "Alt/Az, axis " : "equatorial, axis ") +
                   std::to_string(axis));
      Fresh(geometry);
      mount->PlaceAxes(-1.0, 0.1);
      ASSERT_EQ(mount->GotoEquatorial({0.6, 0.2}), Ok);
      ASSERT_TRUE(WaitUntil([this] { return SlewTo(0); }));
      const size_t from = mount->CommandCount();
      EXPECT_EQ(mount->StopAxis(axis), Ok);
      EXPECT_TRUE(mount->workerIdleEvent.IsSignalled()) << "the worker gave up within the wait";
      EXPECT_EQ(mount->KindsSince(from),
                (std::vector<Command>{Command::Stop, Command::Stop, Command::Stop}));
      EXPECT_EQ(MountStatus(*mount), STATE_IDLE);
      EXPECT_EQ(mount->trackingWanted, 0u);
      EXPECT_EQ(mount->axisStatus[0] | mount->axisStatus[1], AXIS_STOPPED);
      ASSERT_TRUE(WaitUntil([this] { return WorkersGone(); }));
      EXPECT_TRUE(Rates(0).empty()) << "tracking never started";
    }
  }
}

// A slew that meets a failure ends by itself: nothing is stopped, no
// tracking starts, an axis already sent carries on, and the next GOTO works.
TEST_F(MotionWorkers, FailureEndsTheSlewLeavingTheAxesAsCommanded) {
  struct Case {
    const char* name;
    int32_t prepareResult;
    uint32_t silentAxis;
    bool silentMidPass;  // silenced once axis 1 has been sent
    bool axis1Sent;
    bool axisTargets;  // GotoAxes, else GotoEquatorial (which reads the axes first)
  };
  const Case cases[] = {
      {"PrepareSlew fails", NoResponseAxis1, NO_AXIS, false, false, false},
      {"axis 1 (commanded first) fails", Ok, 1, false, false, false},
      {"axis 0 fails after axis 1 was sent", Ok, 0, false, true, true},
      {"axis 1 stops answering mid-pass", Ok, 1, true, true, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Fresh();
    mount->PlaceAxes(c.axisTargets ? 0.0 : -1.0, c.axisTargets ? 0.0 : -0.5);
    mount->prepareSlewResult = c.prepareResult;
    if (c.silentAxis != NO_AXIS && !c.silentMidPass) mount->SetSilent(c.silentAxis, true);
    ASSERT_EQ(c.axisTargets ? mount->GotoAxes(-0.2, 0.3) : mount->GotoEquatorial({0.6, 0.2}), Ok);
    if (c.silentMidPass) {
      ASSERT_TRUE(WaitUntil([this] { return SlewTo(1); }));
      mount->SetSilent(c.silentAxis, true);
    }
    ASSERT_TRUE(WaitUntil([this] { return mount->SlewFinished() && WorkersGone(); }))
        << "the worker gives up by itself";
    EXPECT_EQ(SlewTo(1), c.axis1Sent);
    if (!c.silentMidPass) {
      EXPECT_FALSE(SlewTo(0));
    }
    EXPECT_TRUE(mount->Commands(Command::Stop).empty()) << "nothing is stopped after a failure";
    EXPECT_TRUE(mount->Commands(Command::SetRate).empty()) << "no tracking";
    EXPECT_EQ(mount->trackingWanted, 0u);
    if (c.axis1Sent && !c.silentMidPass) {
      EXPECT_TRUE(WaitUntil([this] { return mount->TrueAngle(1) == 0.3; }))
          << "axis 1 carries on to where it was sent";
    }
    if (c.silentAxis != NO_AXIS) mount->SetSilent(c.silentAxis, false);
    mount->prepareSlewResult = Ok;
    ASSERT_EQ(mount->GotoEquatorial({0.6, 0.2}), Ok);
    ASSERT_TRUE(WaitUntil([this] { return IsTracking(); })) << "usable again";
  }
}

// Once a release has begun no worker starts: every operation that would
// start one leaves the axes free and the mount idle, so the release (and
// any halt) has nothing to wait for.
TEST_F(MotionWorkers, NoWorkerStartsOnceTheMountIsBeingReleased) {
  OwnedMount<TestMount> altaz(new TestMount(Geometry::AltAz));
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
      EXPECT_FALSE(m->IsTrackingLoopRunning());
      EXPECT_EQ(MountStatus(*m), STATE_IDLE);
    }
  }
  EXPECT_EQ(mount->CommandCount() + altaz->CommandCount(), 0u);
}

TEST_F(MotionWorkers, NewGotoTakesOverFromTheRunningOne) {
  mount->PlaceAxes(-1.0, 0.0);
  ASSERT_EQ(mount->GotoAxes(1.0, 0.5), Ok);
  ASSERT_TRUE(WaitUntil([this] { return SlewTo(0); }));
  const size_t from = mount->CommandCount();
  GotoAxesAndWait(-0.5, -0.2);
  const std::vector<Command> kinds = mount->KindsSince(from);
  ASSERT_GE(kinds.size(), 3u);
  EXPECT_EQ(std::vector<Command>(kinds.begin(), kinds.begin() + 3),
            (std::vector<Command>{Command::Stop, Command::Stop, Command::PrepareSlew}))
      << "the first worker stops both axes; only then does the second one start";
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
  ASSERT_TRUE(WaitUntil([this] { return IsTracking(); }));
  EXPECT_EQ(mount->Commands(Command::PrepareSlew).size(), 1u)
      << "the new worker gave up after 2000 ms without touching the axes";
  AnglePair sky;
  mount->GetSkyPosition(&sky);
  EXPECT_LT(Separation(sky, second), 0.01)
      << "the old worker went on to the new target";
}

// A manual motion that reverses an axis takes up its backlash first, when
// that is worth it.
TEST_F(MotionWorkers, ManualMotionTakesUpBacklashOnlyWhenItMatters) {
  const double takeUp = mount->backlashRate;
  const struct {
    const char* name;
    uint32_t backlashMs;
    double rate;
    bool takesUp;
  } cases[] = {
      {"21 ms of backlash: take-up, stop, then the rate", 21, -0.001, true},
      {"20 ms is not worth a take-up", 20, -0.001, false},
      {"nor is a rate as fast as the take-up itself", 21, -takeUp, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Fresh();
    mount->backlashTime[0] = c.backlashMs;
    mount->axisDirection[0] = 1;
    ASSERT_EQ(mount->MoveAxis(0, c.rate), Ok);
    ASSERT_TRUE(WaitUntil([this] { return WorkersGone(); }));
    const std::vector<CommandRecord> commands = mount->Commands();
    ASSERT_EQ(commands.size(), c.takesUp ? 3u : 1u);
    if (c.takesUp) {
      EXPECT_EQ(commands[0].value, -takeUp);
      EXPECT_EQ(commands[1].command, Command::Stop);
      EXPECT_GE(commands[1].tick - commands[0].tick, c.backlashMs) << "ran the whole take-up";
    }
    EXPECT_EQ(commands.back().command, Command::SetRate);
    EXPECT_EQ(commands.back().value, c.rate);
    EXPECT_EQ(MountStatus(*mount), STATE_MOVING);
    ASSERT_EQ(mount->StopAxis(0), Ok);
    EXPECT_EQ(MountStatus(*mount), STATE_IDLE);
  }
}

// --- A request that comes while an older one finishes --------------------
// The older worker acts only for its own request. Exact interleavings:
// position reads held to stop a worker at a chosen point, and take-ups
// that must end at once when a newer request comes.

// Slews run fast; take-ups slower, so a take-up's 6.4 s stay well apart
// from the few real milliseconds a stop takes even under load.
constexpr double SLEW_CLOCK_SPEED = 40.0;
constexpr double TAKE_UP_CLOCK_SPEED = 5.0;
// About 6.4 s of take-up at the default take-up rate.
constexpr double LONG_BACKLASH = 0.03;

class RequestHandOver : public testing::TestMountTest {};

// The old slew is held at its arrival check while a second GOTO comes; when
// it goes on it arrives at its own target, but must neither clear the new
// run flags nor start tracking: the second slew runs undisturbed (no rate
// command during it) and tracking starts only behind it.
TEST_F(RequestHandOver, GotoIssuedAsThePreviousArrivesIsServedUndisturbed) {
  for (const Geometry geometry : {Geometry::AltAz, Geometry::Equatorial}) {
    SCOPED_TRACE(geometry == Geometry::AltAz ? "Alt/Az" : "equatorial");
    Make(geometry, SLEW_CLOCK_SPEED);
    const AnglePair first{-0.3, 0.4};
    const AnglePair second{0.4, 0.2};
    const AnglePair start = AxesOf(*mount, first);
    mount->PlaceAxes(start.lon, start.lat);
    mount->HoldPositionReads(true);
    ASSERT_EQ(mount->GotoEquatorial(first), Ok);
    ASSERT_TRUE(WaitUntil([&] { return mount->ReadsHeld() > 0; }));
    ASSERT_EQ(mount->GotoEquatorial(second), Ok);
    mount->HoldPositionReads(false);
    ASSERT_TRUE(WaitUntil([&] { return IsTracking(); }));

    // The first GOTO stood at its target already: every slew command is the second's.
    const std::vector<Command> kinds = mount->KindsSince(0);
    const auto lastSlew = std::find(kinds.rbegin(), kinds.rend(), Command::SlewTo);
    ASSERT_NE(lastSlew, kinds.rend()) << "the second GOTO was dropped";
    EXPECT_EQ(std::find(lastSlew, kinds.rend(), Command::SetRate), kinds.rend())
        << "a rate command landed in the second slew";
    EXPECT_LT(Separation(mount->TrueSky(), second), 0.01);
  }
}

enum class TakeUp { AxisMotion, EquatorialTracking, AltAzLoop };

// Starts a slow motion that reverses axis 0 (a take-up of about 6.4 s).
void StartReversal(TestMount& mount, TakeUp kind) {
  mount.SetBacklash(0, LONG_BACKLASH);
  mount.PlaceAxes(0.0, 0.0);
  if (kind == TakeUp::AxisMotion) {
    mount.axisDirection[0] = 1;
    mount.MoveAxis(0, -SIDEREAL_RATE);
  } else {
    // Tracking (and the unaligned loop here) runs axis 0 positive.
    mount.axisDirection[0] = 0;
    mount.axisDirection[1] = 1;
    mount.SetTracking(1);
  }
}

TEST_F(RequestHandOver, TakeUpEndsAtOnceWhenANewerRequestComes) {
  const struct {
    const char* name;
    TakeUp kind;
    // Else the core's stop on axis 0 (the equatorial layer's would hand
    // the axis back to the tracking that is wanted).
    bool turnTrackingOff;
  } cases[] = {
      {"manual move, stopped", TakeUp::AxisMotion, false},
      {"equatorial tracking start, axis stopped", TakeUp::EquatorialTracking, false},
      {"equatorial tracking start, tracking turned off", TakeUp::EquatorialTracking, true},
      {"Alt/Az loop, tracking turned off", TakeUp::AltAzLoop, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Make(c.kind == TakeUp::AltAzLoop ? Geometry::AltAz : Geometry::Equatorial,
         TAKE_UP_CLOCK_SPEED);
    StartReversal(*mount, c.kind);
    ASSERT_TRUE(WaitForRates(0, 1));
    const CommandRecord takeUp = Rates(0).front();
    ASSERT_EQ(std::fabs(takeUp.value), mount->backlashRate) << "the first rate is the take-up";
    const uint32_t deadline = takeUp.tick + mount->backlashTime[0];
    if (c.turnTrackingOff) {
      mount->SetTracking(0);
    } else {
      mount->Mount::StopAxis(0);
    }
    ASSERT_TRUE(WaitUntil([&] { return WorkersGone(); })) << "a worker kept running";
    EXPECT_LT(static_cast<int32_t>(platform::TickCount() - deadline), 0)
        << "a worker waited out its take-up";
    // Every command came before the deadline: the first stop ended the take-up.
    const std::vector<CommandRecord> stops = mount->Commands(Command::Stop, 0);
    ASSERT_FALSE(stops.empty()) << "the take-up was never stopped";
    for (const CommandRecord& r : mount->Commands(Command::SetRate)) {
      EXPECT_LE(r.tick, stops.front().tick) << "a rate on axis " << r.axis << " after the stop";
    }
    EXPECT_EQ(MountStatus(*mount), STATE_IDLE) << "tracking started after all";
  }
}

}  // namespace
}  // namespace scopemount
