// A request that comes while an older one finishes: the older worker acts
// only for its own request. Exact interleavings on the test mount, whose
// position reads can be held to stop a worker at a chosen point, and
// take-ups that must end at once when a newer request comes.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "support/angles.h"
#include "support/test_mount_fixture.h"

namespace scopemount {
namespace {

using testing::AxesOf;
using testing::Command;
using testing::CommandRecord;
using testing::Geometry;
using testing::MountStatus;
using testing::TestMount;
using testing::WaitUntil;

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
    ASSERT_TRUE(WaitUntil([&] { return MountStatus(*mount) == STATE_TRACKING; }));

    const std::vector<CommandRecord> log = mount->Commands();
    size_t lastSlew = 0;
    for (size_t i = 0; i < log.size(); ++i) {
      if (log[i].command == Command::SlewTo) lastSlew = i;
    }
    ASSERT_GT(lastSlew, 0u) << "the second GOTO was dropped";
    for (size_t i = 0; i < lastSlew; ++i) {
      EXPECT_NE(log[i].command, Command::SetRate) << "a rate command landed in the second slew";
    }
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
    ASSERT_TRUE(WaitUntil([&] { return !mount->Commands(Command::SetRate, 0).empty(); }));
    const CommandRecord takeUp = mount->Commands(Command::SetRate, 0).front();
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

    uint32_t stoppedAt = 0;
    for (const CommandRecord& r : mount->Commands(Command::Stop, 0)) {
      if (stoppedAt == 0 && r.tick >= takeUp.tick && static_cast<int32_t>(r.tick - deadline) < 0) {
        stoppedAt = r.tick;
      }
    }
    EXPECT_NE(stoppedAt, 0u) << "the take-up ran to its deadline";
    for (const CommandRecord& r : mount->Commands(Command::SetRate)) {
      EXPECT_LE(r.tick, stoppedAt) << "a rate was set on axis " << r.axis << " after the stop";
    }
    EXPECT_EQ(MountStatus(*mount), STATE_IDLE) << "tracking started after all";
  }
}

}  // namespace
}  // namespace scopemount
