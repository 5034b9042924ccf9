// The simulators' motors on a clock the test steps by hand: slews at the
// slew speed that end on the first read past the target, rates, stops and
// tick wrap.
#include <gtest/gtest.h>

#include <atomic>
#include <cmath>

#include "celestial/angles.h"
#include "geometry/altaz_simulator.h"
#include "geometry/equatorial_simulator.h"
#include "platform/clock.h"
#include "support/angles.h"

namespace scopemount {
namespace {

// Time stands still until the test moves it.
class SteppedClock final : public platform::Clock {
 public:
  explicit SteppedClock(uint64_t startMs) : now_(startMs) {}
  uint64_t NowMs() const override { return now_; }
  std::chrono::steady_clock::time_point RealDeadlineAfter(uint32_t ms) const override {
    return std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
  }
  void Advance(uint64_t ms) { now_ += ms; }

 private:
  std::atomic<uint64_t> now_;
};

class SimulatedMotors : public ::testing::Test {
 protected:
  void SetUp() override { platform::UseClock(&clock); }
  void TearDown() override { platform::UseClock(nullptr); }

  double Position(uint32_t axis) {
    double angle = NAN;
    EXPECT_EQ(mount.GetAxisPosition(axis, &angle), Ok);
    return angle;
  }
  uint32_t Status(uint32_t axis) {
    uint32_t status = 0;
    EXPECT_EQ(mount.GetAxisStatus(axis, &status), Ok);
    return status;
  }

  SteppedClock clock{0xFFFFFFFFull - 400};  // the tick count wraps in every test
  AltAzSimulator mount;
};

TEST_F(SimulatedMotors, SlewsEndOnTheFirstReadPastTheTarget) {
  EXPECT_EQ(Position(0), 0.0);
  ASSERT_EQ(mount.SlewAxisTo(0, 10 * DEG), Ok);
  EXPECT_EQ(mount.axisStatus[0], AXIS_SLEWING | AXIS_POSITIVE);
  clock.Advance(1000);
  EXPECT_NEAR(Position(0), 8 * DEG, 1e-12) << "8 degrees a second, across the tick wrap";
  clock.Advance(250);
  EXPECT_EQ(Position(0), 10 * DEG);
  EXPECT_EQ(Status(0), AXIS_SLEWING | AXIS_POSITIVE) << "standing on the target is not arrival";
  clock.Advance(1);
  EXPECT_EQ(Position(0), 10 * DEG) << "snapped onto the target";
  EXPECT_EQ(Status(0), AXIS_STOPPED);
  clock.Advance(5000);
  EXPECT_EQ(Position(0), 10 * DEG) << "and standing there";
  ASSERT_EQ(mount.SlewAxisTo(0, 10 * DEG), Ok);
  EXPECT_EQ(mount.axisStatus[0], AXIS_STOPPED) << "a slew to where the axis stands";

  // Negative: no direction bit; the status read alone sees the end.
  ASSERT_EQ(mount.SlewAxisTo(1, -4 * DEG), Ok);
  EXPECT_EQ(Status(1), AXIS_SLEWING);
  clock.Advance(600);
  EXPECT_EQ(Status(1), AXIS_STOPPED);
  EXPECT_EQ(mount.axisPosition[1], -4 * DEG);
}

TEST_F(SimulatedMotors, RatesRunFromWhereTheAxisIsAndStopsFreezeIt) {
  const double rate = 0.01;
  ASSERT_EQ(mount.SetAxisRate(1, -rate), Ok);
  EXPECT_EQ(Status(1), AXIS_RUNNING);
  EXPECT_EQ(mount.axisDirection[1], 0u);
  clock.Advance(3000);
  // Not read for three seconds: the new rate still starts where the axis is.
  ASSERT_EQ(mount.SetAxisRate(1, 2 * rate), Ok);
  EXPECT_EQ(Status(1), AXIS_RUNNING | AXIS_POSITIVE);
  EXPECT_EQ(mount.axisDirection[1], 1u);
  clock.Advance(2000);
  ASSERT_EQ(mount.SetAxisRate(1, 0.0), Ok);
  EXPECT_EQ(Status(1), AXIS_STOPPED);
  EXPECT_EQ(mount.axisDirection[1], 1u) << "a stop keeps the last direction";
  clock.Advance(3000);
  EXPECT_NEAR(Position(1), rate, 1e-15);
  // Setting the position keeps the motion.
  ASSERT_EQ(mount.SetAxisRate(0, 0.02), Ok);
  clock.Advance(1000);
  ASSERT_EQ(mount.SetAxisPosition(0, 1.0), Ok);
  clock.Advance(1000);
  EXPECT_NEAR(Position(0), 1.02, 1e-15);
  // A stop mid-slew leaves the axis where it got to.
  ASSERT_EQ(mount.SlewAxisTo(0, -20 * DEG), Ok);
  clock.Advance(1000);
  ASSERT_EQ(mount.StopAxisMotor(0), Ok);
  clock.Advance(1000);
  EXPECT_NEAR(Position(0), 1.02 - 8 * DEG, 1e-12);
  EXPECT_EQ(mount.axisDirection[0], 1u) << "slews and stops leave the direction";
  EXPECT_EQ(mount.SlewAxisTo(2, 1.0), InvalidParameter);
  EXPECT_EQ(mount.SetAxisRate(0, INFINITY), InvalidParameter);
  EXPECT_EQ(mount.SetAxisPosition(0, NAN), InvalidParameter);
}

// Targets below the declination axis's range are taken a turn up; the
// other axis takes any target as given.
TEST_F(SimulatedMotors, EquatorialDeclinationTargetsBelowTheRange) {
  EquatorialSimulator equatorial;
  ASSERT_EQ(equatorial.SlewAxisTo(1, -2.0), Ok);
  EXPECT_EQ(equatorial.axisStatus[1], AXIS_SLEWING | AXIS_POSITIVE) << "up toward -2 + 2 pi";
  clock.Advance(1000);
  double angle = 0;
  ASSERT_EQ(equatorial.GetAxisPosition(1, &angle), Ok);
  EXPECT_NEAR(angle, HALF_PI + 4 * DEG, 1e-12) << "4 degrees a second";
  ASSERT_EQ(equatorial.SlewAxisTo(0, -2.0), Ok);
  EXPECT_EQ(equatorial.axisStatus[0], AXIS_SLEWING) << "axis 0 takes any target as given";
}

}  // namespace
}  // namespace scopemount
