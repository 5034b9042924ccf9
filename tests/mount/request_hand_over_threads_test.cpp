// A request that comes while an older one finishes: the older worker acts
// only for its own request. Exact interleavings on the test mount, whose
// position reads can be held to stop a worker at a chosen point, and
// take-ups that must end at once when a newer request comes.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "support/angles.h"
#include "support/test_mount.h"

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

struct TakeUpCase {
  const char* name;
  TakeUp kind;
};

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

// The request that must end the take-up at once.
void Interrupt(TestMount& mount, TakeUp kind) {
  if (kind == TakeUp::AltAzLoop) {
    mount.StopTracking();
  } else {
    // The core's stop: the equatorial layer would hand the axis back to
    // the tracking that is wanted.
    mount.Mount::StopAxis(0);
  }
}

TEST_F(RequestHandOver, TakeUpEndsAtOnceWhenANewerRequestComes) {
  const TakeUpCase cases[] = {
      {"manual move, stopped", TakeUp::AxisMotion},
      {"equatorial tracking start, axis stopped", TakeUp::EquatorialTracking},
      {"Alt/Az loop, tracking stopped", TakeUp::AltAzLoop}};
  for (const TakeUpCase& c : cases) {
    SCOPED_TRACE(c.name);
    Make(c.kind == TakeUp::AltAzLoop ? Geometry::AltAz : Geometry::Equatorial,
         TAKE_UP_CLOCK_SPEED);
    StartReversal(*mount, c.kind);
    const double takeUpRate = mount->backlashRate;
    const auto takeUpStart = [this, takeUpRate]() -> const CommandRecord* {
      static thread_local CommandRecord found;
      for (const CommandRecord& r : mount->Commands(Command::SetRate)) {
        if (r.axis == 0 && std::fabs(std::fabs(r.value) - takeUpRate) < 1e-12) {
          found = r;
          return &found;
        }
      }
      return nullptr;
    };
    ASSERT_TRUE(WaitUntil([&] { return takeUpStart() != nullptr; })) << "no take-up began";
    const uint32_t began = takeUpStart()->tick;
    const uint32_t deadline = began + mount->backlashTime[0];
    Interrupt(*mount, c.kind);
    ASSERT_TRUE(WaitUntil([&] { return mount->References() == 1; })) << "a worker kept running";
    EXPECT_LT(static_cast<int32_t>(platform::TickCount() - deadline), 0)
        << "a worker waited out its take-up";

    uint32_t stoppedAt = 0;
    for (const CommandRecord& r : mount->Commands(Command::Stop)) {
      if (r.axis == 0 && r.tick >= began && static_cast<int32_t>(r.tick - deadline) < 0) {
        stoppedAt = stoppedAt == 0 ? r.tick : stoppedAt;
      }
    }
    EXPECT_NE(stoppedAt, 0u) << "the take-up ran to its deadline";
    for (const CommandRecord& r : mount->Commands(Command::SetRate)) {
      EXPECT_FALSE(r.axis == 0 && r.tick > stoppedAt) << "a rate was set after the stop";
    }
    EXPECT_NE(MountStatus(*mount), STATE_TRACKING) << "tracking started after all";
  }
}

}  // namespace
}  // namespace scopemount
