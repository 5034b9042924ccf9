// Tracking on the simulated mount: the equatorial worker and the Alt/Az
// loop, their hand-over with motions, halting and the cycle's rules.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <vector>

#include "mount/tracking_workers.h"
#include "support/angles.h"
#include "support/test_mount_fixture.h"

namespace scopemount {
namespace {

using namespace testing;

// The sky's own rates on the axes at `axes`, from the nominal geometry
// (a central difference over two seconds), not the loop's closed form.
AxisRates SkyRatesAt(TestMount& mount, AnglePair axes) {
  AnglePair sky;
  mount.AxesToSky(&axes, &sky, 1);
  const auto at = [&](double seconds) {
    return AxesOf(mount, {sky.lon + SIDEREAL_RATE * seconds, sky.lat});
  };
  const AnglePair before = at(-1.0), after = at(1.0);
  return {NormalizeAngle(after.lon - before.lon) / 2.0, (after.lat - before.lat) / 2.0};
}

class Tracking : public testing::TestMountTest {
 protected:
  // An aligned Alt/Az loop from `axes`, once it has set `rates` axis-0 rates.
  void TrackAligned(AnglePair axes, size_t rates) {
    Make(Geometry::AltAz, 200.0);
    mount->aligned = 1;
    mount->PlaceAxes(axes.lon, axes.lat);
    ASSERT_EQ(mount->SetTracking(1), Ok);
    ASSERT_TRUE(WaitForRates(0, rates));
  }
  // Tracking here reverses the axis, which takes up `backlashMs` first:
  // equatorial axis 0 ran negative; at Alt/Az (1.0, 0.7) the altitude rate
  // is positive and axis 1 ran negative.
  uint32_t PrepareReversal(uint32_t backlashMs) {
    const uint32_t axis = mount->geometry == Geometry::AltAz ? 1 : 0;
    if (axis == 1) mount->PlaceAxes(1.0, 0.7);
    mount->backlashTime[axis] = backlashMs;
    mount->axisDirection[axis] = 0;
    return axis;
  }
  // Where tracking anchored, as the sky has turned `seconds` later.
  AnglePair AnchorTurned(double seconds) const {
    return {mount->trackStartSky[0] + SIDEREAL_RATE * seconds, mount->trackStartSky[1]};
  }
};

TEST_F(Tracking, SouthernEquatorialTrackingTakesUpBacklashThenRunsBackwards) {
  Make(Geometry::Equatorial, 20.0);
  ASSERT_EQ(mount->SetSite(-0.5, 0), Ok);
  ASSERT_EQ(mount->SetTrackingRate(TRACKING_LUNAR), Ok);
  mount->backlashTime[0] = 500;
  mount->axisDirection[0] = 1;
  ASSERT_EQ(mount->SetTracking(1), Ok);
  ASSERT_TRUE(WaitUntil([this] { return mount->CommandCount() == 3 && WorkersGone(); }));
  EXPECT_EQ(MountStatus(*mount), STATE_TRACKING);
  EXPECT_EQ(mount->KindsSince(0),
            (std::vector<Command>{Command::SetRate, Command::Stop, Command::SetRate}));
  const std::vector<CommandRecord> commands = mount->Commands();
  EXPECT_EQ(commands[0].value, -mount->backlashRate);
  EXPECT_GE(commands[1].tick - commands[0].tick, 500u);
  EXPECT_EQ(commands[2].value, -LUNAR_RATE);
  // The test clock can tick between the anchor and the rate command.
  EXPECT_GE(mount->trackStartTick, commands[1].tick) << "anchored after the take-up";
  EXPECT_LE(mount->trackStartTick, commands[2].tick) << "anchored before the rate was set";
}

// Tracking waits for a running slew to end, but at most 5000 ms; it never
// disturbs the slew.
TEST_F(Tracking, EquatorialTrackingWaitsForARunningSlewWithinItsTimeOut) {
  for (const uint32_t prepareMs : {0u, 8000u}) {
    SCOPED_TRACE(prepareMs);
    Make(Geometry::Equatorial, 20.0);
    mount->PlaceAxes(0.0, 0.0);
    mount->prepareSlewDelayMs = prepareMs;
    ASSERT_EQ(mount->GotoAxes(0.5, 0.2), Ok);
    ASSERT_TRUE(WaitUntil([this] { return !mount->Commands(Command::PrepareSlew).empty(); }));
    ASSERT_EQ(mount->SetTracking(1), Ok);
    ASSERT_TRUE(WaitUntil([this] { return mount->workerStarts == 2 && WorkersGone(); }));
    EXPECT_TRUE(mount->Commands(Command::Stop).empty()) << "the slew was not interrupted";
    EXPECT_NEAR(mount->TrueAngle(0), 0.5, DEFAULT_GOTO_TOLERANCE);
    EXPECT_NEAR(mount->TrueAngle(1), 0.2, DEFAULT_GOTO_TOLERANCE);
    EXPECT_EQ(mount->Commands(Command::SetRate).size(), prepareMs == 0 ? 1u : 0u);
    EXPECT_EQ(MountStatus(*mount), prepareMs == 0 ? STATE_TRACKING : STATE_IDLE);
  }
}

TEST_F(Tracking, EquatorialTrackingLeavesAnAxisThatAMotionOwns) {
  Make(Geometry::Equatorial, 20.0);
  ASSERT_EQ(mount->MoveAxis(0, 0.01), Ok);
  ASSERT_TRUE(WaitUntil([this] { return !Rates(0).empty() && WorkersGone(); }));
  ASSERT_EQ(mount->SetTracking(1), Ok);
  ASSERT_TRUE(WaitUntil([this] { return mount->workerStarts == 2 && WorkersGone(); }));
  EXPECT_EQ(Rates(0).size(), 1u) << "no tracking rate over the manual one";
  EXPECT_EQ(MountStatus(*mount), STATE_MOVING);
}

// The first rate command fails: the worker (or the loop) ends with nothing
// more commanded, the tracking bit clear and the axes handed back, and a
// later start tracks.
TEST_F(Tracking, RateThatCannotBeSetLeavesTrackingOff) {
  const struct {
    const char* name;
    Geometry geometry;
    uint32_t backlashMs;
    uint32_t workerStarts;  // the Alt/Az starter runs a loop of its own
  } cases[] = {
      {"equatorial tracking rate", Geometry::Equatorial, 0, 1},
      {"equatorial take-up rate", Geometry::Equatorial, 500, 1},
      {"Alt/Az take-up rate", Geometry::AltAz, 300, 2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Make(c.geometry, 100.0);
    mount->FailRateCommands(PrepareReversal(c.backlashMs), 0, 1);
    ASSERT_EQ(mount->SetTracking(1), Ok);
    ASSERT_TRUE(WaitUntil([&] { return mount->workerStarts == c.workerStarts && WorkersGone(); }));
    const std::vector<CommandRecord> commands = mount->Commands();
    ASSERT_EQ(commands.size(), 1u) << "nothing after the failed rate";
    EXPECT_TRUE(commands[0].failed);
    EXPECT_EQ(mount->mountState & STATE_TRACKING, 0u) << "the tracking bit stays clear";
    EXPECT_TRUE(mount->workerIdleEvent.IsSignalled()) << "the axes were handed back";
    EXPECT_FALSE(mount->IsTrackingLoopRunning());
    ASSERT_EQ(mount->SetTracking(1), Ok);
    ASSERT_TRUE(WaitUntil([this] { return IsTracking(); }));
  }
}

// The unaligned loop takes up the reversing axis once, in its first cycle,
// then sets the sky's rates at once and every ten seconds.
TEST_F(Tracking, UnalignedAltAzLoopTakesUpOnceThenSetsTheSkyRatesEveryTenSeconds) {
  Make(Geometry::AltAz, 100.0);
  PrepareReversal(300);
  ASSERT_EQ(mount->SetTracking(1), Ok);
  ASSERT_TRUE(WaitForRates(0, 3));
  EXPECT_TRUE(mount->IsTrackingLoopRunning());
  EXPECT_EQ(MountStatus(*mount), STATE_TRACKING);
  const std::vector<CommandRecord> all = mount->Commands();
  const AxisRates expected = SkyRatesAt(*mount, {1.0, 0.7});
  EXPECT_EQ(all[0].value, mount->backlashRate) << "take-up first";
  EXPECT_EQ(all[1].command, Command::Stop);
  EXPECT_GE(all[1].tick - all[0].tick, 300u);
  EXPECT_NEAR(all[2].value, expected.axis1, 1e-12) << "the first cycle runs at once";
  EXPECT_NEAR(all[3].value, expected.axis0, 1e-12);
  EXPECT_EQ(all[3].axis, 0u);
  EXPECT_EQ(mount->Commands(Command::Stop).size(), 1u) << "later cycles do not stop the axis";
  const std::vector<CommandRecord> rates0 = Rates(0);
  for (size_t i = 1; i < 3; ++i) {
    const uint32_t period = rates0[i].tick - rates0[i - 1].tick;
    EXPECT_GE(period, UNALIGNED_TRACKING_PERIOD_MS);
    EXPECT_LT(period, UNALIGNED_TRACKING_PERIOD_MS + 3000) << "woken by its period";
  }

  ASSERT_EQ(mount->StopTracking(), Ok);
  EXPECT_FALSE(mount->IsTrackingLoopRunning()) << "the halt waited for the loop to end";
  EXPECT_EQ(MountStatus(*mount), STATE_IDLE);
  const uint32_t started = mount->workerStarts;
  ASSERT_EQ(mount->SetTracking(1), Ok);
  ASSERT_TRUE(WaitUntil([&] { return mount->workerStarts == started + 2; }))
      << "a new starter and a new loop";
  EXPECT_TRUE(mount->IsTrackingLoopRunning());
  mount->StopWorkersForRelease();
  EXPECT_FALSE(mount->IsTrackingLoopRunning()) << "a release ends the loop, not its next cycle";
}

// The aligned loop aims thirty seconds ahead and holds the star; a push
// ahead of it is damped, never reversed; a larger move re-anchors.
TEST_F(Tracking, AlignedAltAzLoopHoldsTheStarDampsAPushAndReAnchorsAfterAMove) {
  ASSERT_NO_FATAL_FAILURE(TrackAligned({2.0, 0.8}, 5));
  const std::vector<CommandRecord> rates0 = Rates(0);
  for (size_t i = 2; i < rates0.size(); ++i) {
    EXPECT_GE(rates0[i].tick - rates0[i - 1].tick, ALIGNED_TRACKING_PERIOD_MS);
  }
  const double elapsed =
      static_cast<double>(platform::TickCount() - mount->trackStartTick) / 1000.0;
  EXPECT_LT(Separation(mount->TrueSky(), AnchorTurned(elapsed)), 10 * ARCSEC)
      << "after " << elapsed << " s of tracking";

  const double direction = rates0[0].value > 0.0 ? 1.0 : -1.0;
  // Pushed two degrees ahead of the star: catching back up would reverse
  // axis 0, so the loop runs it slower than the star instead.
  mount->PlaceAxes(mount->TrueAngle(0) + direction * 2 * DEG, mount->TrueAngle(1));
  size_t from = mount->CommandCount();
  // The first rate after the push may come from a cycle that read before it.
  ASSERT_TRUE(WaitForRates(0, 2, from));
  const CommandRecord damped = Rates(0, from)[1];
  // The star's own axis-0 rate at that moment, from the anchor.
  const auto axisZeroAt = [&](uint32_t ms) {
    return AxesOf(*mount, AnchorTurned(ms / 1000.0)).lon;
  };
  const uint32_t t = damped.tick - mount->trackStartTick;
  const double starRate = (axisZeroAt(t + ALIGNED_TRACKING_PERIOD_MS) - axisZeroAt(t)) * 1000.0 /
                          ALIGNED_TRACKING_PERIOD_MS;
  // The star's rate drifts while a slow run gets from the loop's reading to
  // the recorded command; 1% still tells the damping from none or another.
  EXPECT_NEAR(damped.value, 0.75 * starRate, 1e-2 * std::fabs(starRate));

  // Moved underneath the loop by 10 degrees (a hand on the tube).
  mount->PlaceAxes(2.0 + 10 * DEG, 0.8);
  from = mount->CommandCount();
  ASSERT_TRUE(WaitForRates(0, 2, from));
  EXPECT_LT(std::fabs(Rates(0, from)[1].value), 3 * SIDEREAL_RATE)
      << "no slew back to the old place";
  EXPECT_NEAR(AxesOf(*mount, AnchorTurned(0.0)).lon, 2.0 + 10 * DEG, 0.01)
      << "tracking goes on from the new place";
}

TEST_F(Tracking, AzimuthCrossingTheSeamKeepsASmallRateOfTheSameSign) {
  // Just east of due south, a star about to transit moves toward +-pi.
  ASSERT_NO_FATAL_FAILURE(TrackAligned({PI - 2e-4, 40 * DEG}, 1));
  const double rate = Rates(0)[0].value;
  EXPECT_GT(rate, 0.0);
  EXPECT_LT(rate, 3 * SIDEREAL_RATE);
}

TEST_F(Tracking, AltAzFailedReadsAndRatesSkipOnlyTheirCycle) {
  struct Case {
    const char* name;
    bool aligned;
    uint32_t failingRateAxis, rateFailures, failingReadAxis, readFailures;
    uint32_t minFirstRateMs;  // from the start to the first rate set on axis 1
  };
  // The starter's anchor reads each axis once (its result ignored) before
  // the first cycle; an aligned cycle that cannot read an axis sets nothing.
  const Case cases[] = {
      {"a failed axis-0 rate skips the axis-1 rate of that cycle", false, 0, 1, 0, 0,
       UNALIGNED_TRACKING_PERIOD_MS},
      {"failed position reads skip two aligned cycles", true, 0, 0, 1, 3,
       2 * ALIGNED_TRACKING_PERIOD_MS},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    Make(Geometry::AltAz, 200.0);
    mount->aligned = c.aligned ? 1 : 0;
    mount->PlaceAxes(2.0, 0.8);
    mount->FailRateCommands(c.failingRateAxis, 0, c.rateFailures);
    mount->FailPositionReads(c.failingReadAxis, c.readFailures);
    const uint32_t started = platform::TickCount();
    ASSERT_EQ(mount->SetTracking(1), Ok);
    ASSERT_TRUE(WaitForRates(1, 2));
    EXPECT_GE(Rates(1)[0].tick - started, c.minFirstRateMs);
    EXPECT_TRUE(mount->IsTrackingLoopRunning()) << "the loop goes on";
    EXPECT_EQ(MountStatus(*mount), STATE_TRACKING);
  }
}

// Tracking turned off while the starter anchors, before its loop exists,
// stays off.
TEST_F(Tracking, AltAzTrackingTurnedOffWhileItsStarterAnchorsStaysOff) {
  Make(Geometry::AltAz, 100.0);
  mount->HoldPositionReads(true);
  ASSERT_EQ(mount->SetTracking(1), Ok);
  ASSERT_TRUE(WaitUntil([this] { return mount->ReadsHeld() > 0; }));
  ASSERT_EQ(mount->SetTracking(0), Ok);
  mount->HoldPositionReads(false);
  ASSERT_TRUE(WaitUntil([this] { return WorkersGone(); })) << "the loop started after all";
  EXPECT_FALSE(mount->IsTrackingLoopRunning());
  EXPECT_EQ(MountStatus(*mount), STATE_IDLE);
}

TEST_F(Tracking, AltAzTakeUpRetriesTheRateThreeTimesThenTracksOn) {
  Make(Geometry::AltAz, 100.0);
  mount->FailRateCommands(PrepareReversal(300), 1, 1000);  // the take-up runs, no rate after it does
  ASSERT_EQ(mount->SetTracking(1), Ok);
  ASSERT_TRUE(WaitForRates(0, 2)) << "the loop neither hangs in the take-up nor ends";
  // Failed rate commands are recorded too.
  const std::vector<CommandRecord> rates = mount->Commands(Command::SetRate);
  const auto onAxis0 = [](const CommandRecord& r) { return r.axis == 0; };
  EXPECT_EQ(std::find_if(rates.begin(), rates.end(), onAxis0) - rates.begin(), 1 + 3)
      << "on axis 1, before any on axis 0: the take-up, then three attempts";
  EXPECT_EQ(mount->CommandCount(Command::Stop, 1), 3u) << "each attempt stops the axis first";
  EXPECT_TRUE(mount->IsTrackingLoopRunning());
}

}  // namespace
}  // namespace scopemount
