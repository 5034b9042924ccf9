// Models 0 and 1 driven the way an application drives them, through the C
// boundary, against two emulated controllers on one echoing bus: GOTOs by
// sky and horizontal position, tracking, manual motion with backlash
// take-up, stop, sync, home, alignment, the bus's faults, and disconnecting
// at any moment. Fast test clock, except over the pseudo-terminal.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <memory>
#include <random>
#include <string>

#include "aux_bus_controllers.h"
#include "emulated_line.h"
#include "geometry/simulator_session.h"
#include "mount/mount.h"
#include "protocols/auxbus/aux_bus_mount.h"
#include "pty_host.h"
#include "support/controller_bench.h"
#include "support/selected_port.h"

namespace scopemount {
namespace {

using namespace testing;
using emulation::AuxBusControllers;
using emulation::AuxBusFaults;
using emulation::LineFaults;
using emulation::LineWiring;

constexpr int32_t ALTAZ = 0;
constexpr int32_t EQUATORIAL = 1;
constexpr double LATITUDE = 0.6;
// Slews of a minute of test time take a fifth of a second.
constexpr double SPEED_UP = 300.0;
const LineWiring BUS_WIRING{.echo = true, .rtsLoopsToCts = true};
// Axis targets below keep axis 0 in [-pi, 0], where the equatorial
// geometry puts every sky position (its controller then never crosses the
// wrap of its counter).

double ToleranceOf(int32_t model) {
  return model == ALTAZ ? 0.0014544410433286077 : 0.0005817764173314432;
}

// The controller's angle of a library axis angle (the equatorial hour-angle
// axis counts from half a turn away).
double ControllerAngleOf(int32_t model, uint32_t axis, double angle) {
  const double shifted = model == EQUATORIAL && axis == 0 ? angle + PI : angle;
  return NormalizeAngle(shifted);
}

double AngleGap(double a, double b) { return std::fabs(NormalizeAngle(a - b)); }

// One model on the emulated bus, on a fast clock.
class AuxSession : public ControllerBench<AuxBusControllers> {
 public:
  AuxSession(int32_t model, double speed = SPEED_UP, LineWiring wiring = BUS_WIRING,
             AuxBusFaults faults = {})
      : ControllerBench(speed), model_(model) {
    line().SetWiring(wiring);
    bus().SetFaults(faults);
    const uint32_t start = Tick();
    connected_ = Connect(model, LATITUDE);
    connectMs_ = Tick() - start;
  }

  int32_t connected() const { return connected_; }
  // Test-clock time the connect took.
  uint32_t connectMs() const { return connectMs_; }
  AuxBusControllers& bus() { return controller(); }
  double ControllerAngle(uint32_t axis) { return bus().Position(axis, line().Clock().NowMs()); }
  // Library and controller agree on where the axes are.
  void ExpectControllersAt(AnglePair axes, double tolerance) {
    EXPECT_LT(AngleGap(ControllerAngle(0), ControllerAngleOf(model_, 0, axes.lon)), tolerance);
    EXPECT_LT(AngleGap(ControllerAngle(1), ControllerAngleOf(model_, 1, axes.lat)), tolerance);
  }

 private:
  const int32_t model_;
  int32_t connected_ = -1;
  uint32_t connectMs_ = 0;
};

class AuxModels : public ::testing::TestWithParam<int32_t> {};

std::string AuxModelName(const ::testing::TestParamInfo<int32_t>& info) {
  return info.param == ALTAZ ? "AltAz" : "Equatorial";
}

// --- Motion ------------------------------------------------------------------

TEST_P(AuxModels, GotoBySkyAndByHorizontalPositionArrive) {
  const int32_t model = GetParam();
  AuxSession session(model);
  ASSERT_EQ(session.connected(), SCOPE_OK);
  EXPECT_EQ(ScopeIsEquatorial(), model);

  const AnglePair targets[] = {{-2 * HOUR, 10 * DEG}, {1.5 * HOUR, 45 * DEG}};
  for (const AnglePair& target : targets) {
    const uint32_t requested = Tick();
    ASSERT_EQ(ScopeGotoEquatorial(target.lon, target.lat), SCOPE_OK);
    ASSERT_TRUE(WaitForTracking()) << "the GOTO never ended in tracking";
    const TimedReading reading = ReadSky();
    EXPECT_LE(TrackedError(reading, target, requested), ToleranceOf(model))
        << "read back " << reading.sky.lon << ", " << reading.sky.lat;
    session.ExpectControllersAt(AxisPositions(), 0.05 * DEG);
    // Tracking keeps it there.
    WaitTestTime(60000);
    EXPECT_LE(TrackedError(ReadSky(), target, requested), ToleranceOf(model)) << "after a minute";
  }

  ASSERT_EQ(ScopeSetTracking(0), SCOPE_OK);
  ASSERT_TRUE(WaitForWorkers());
  const double azimuth = 120 * DEG;
  const double altitude = 35 * DEG;
  ASSERT_EQ(ScopeGotoHorizontal(azimuth, altitude), SCOPE_OK);
  ASSERT_TRUE(WaitUntil([] { return CurrentMount()->References() == 1 && MountState() != SCOPE_STATE_SLEWING; }));
  const AnglePair reached = HorizontalPosition();
  // The sky turns under an equatorial mount that does not track.
  const double slack = model == EQUATORIAL ? 0.5 * DEG : 0.0;
  EXPECT_LE(Separation(reached, {azimuth, altitude}), ToleranceOf(model) + slack)
      << "reached " << reached.lon << ", " << reached.lat;
  EXPECT_EQ(session.bus().Status(0, session.line().Clock().NowMs()) & emulation::MOTION_SLEWING, 0u);
}

TEST_P(AuxModels, ManualMotionTakesUpBacklashAndStopsThenSyncAndHomeDeclare) {
  const int32_t model = GetParam();
  AuxSession session(model);
  ASSERT_EQ(session.connected(), SCOPE_OK);
  const double rate = 10 * SIDEREAL_RATE;
  ASSERT_EQ(ScopeSetBacklash(0, 0.5 * DEG), SCOPE_OK);
  ASSERT_EQ(ScopeMoveAxis(0, rate), SCOPE_OK);
  ASSERT_TRUE(WaitForWorkers());
  EXPECT_EQ(AxisStatus(0), SCOPE_AXIS_RUNNING | SCOPE_AXIS_POSITIVE);
  session.line().TakeHostBytes();

  // Reversing: first the take-up, 32 sidereal (wire 07 85 00) the new way,
  // then the rate itself (10 sidereal, wire 02 59 00).
  ASSERT_EQ(ScopeMoveAxis(0, -rate), SCOPE_OK);
  ASSERT_TRUE(WaitForWorkers());
  const std::vector<uint8_t> wire = session.line().TakeHostBytes();
  const std::vector<uint8_t> takeUp = {0x10, 0x07, 0x07, 0x85, 0x00};
  const std::vector<uint8_t> slow = {0x10, 0x07, 0x02, 0x59, 0x00};
  const auto takeUpAt = std::search(wire.begin(), wire.end(), takeUp.begin(), takeUp.end());
  const auto slowAt = std::search(wire.begin(), wire.end(), slow.begin(), slow.end());
  EXPECT_NE(takeUpAt, wire.end()) << "no take-up on reversal";
  EXPECT_NE(slowAt, wire.end()) << "the rate was never set";
  EXPECT_LT(takeUpAt, slowAt) << "take-up first";
  EXPECT_EQ(AxisStatus(0), SCOPE_AXIS_RUNNING);
  const double before = session.ControllerAngle(0);
  WaitTestTime(60000);
  EXPECT_LT(session.ControllerAngle(0), before) << "the controller runs backwards";

  ASSERT_EQ(ScopeStopAxis(0), SCOPE_OK);
  ASSERT_TRUE(WaitForWorkers());
  EXPECT_EQ(AxisStatus(0), SCOPE_AXIS_STOPPED);
  EXPECT_EQ(session.bus().Status(0, session.line().Clock().NowMs()), emulation::MOTION_STOPPED);

  ASSERT_EQ(ScopeSyncAxis(1, 0.3), SCOPE_OK);
  EXPECT_LT(AngleGap(session.ControllerAngle(1), 0.3), 1e-6);
  ASSERT_EQ(ScopeSyncHome(), SCOPE_OK);
  const AnglePair home = model == EQUATORIAL ? AnglePair{-HALF_PI, HALF_PI} : AnglePair{0.0, 0.0};
  session.ExpectControllersAt(home, 1e-6);
  const AnglePair read = AxisPositions();
  EXPECT_NEAR(read.lon, home.lon, 1e-6);
  EXPECT_NEAR(read.lat, home.lat, 1e-6);
}

TEST_P(AuxModels, OneStarAlignmentStartsTracking) {
  const int32_t model = GetParam();
  AuxSession session(model);
  ASSERT_EQ(session.connected(), SCOPE_OK);
  const AnglePair star{-2 * HOUR, 20 * DEG};
  const AnglePair nominal = SkyToAxes(star);
  const double observation[4] = {star.lon, star.lat, nominal.lon + 1 * DEG, nominal.lat - 0.5 * DEG};
  ASSERT_EQ(ScopeAlignOneStar(observation), SCOPE_OK);
  EXPECT_EQ(ScopeGetAlignmentQuality(nullptr), 100);
  ASSERT_TRUE(WaitForTracking());
  const AnglePair aligned = SkyToAxes(star);
  EXPECT_NEAR(aligned.lon, observation[2], 1e-9);
  EXPECT_NEAR(aligned.lat, observation[3], 1e-9);
}

// --- Faults ---------------------------------------------------------------------

TEST_P(AuxModels, MissingControllerRefusesTheConnectionWithinTheTimeOuts) {
  const int32_t model = GetParam();
  for (uint32_t missing : {0u, 1u}) {
    SCOPED_TRACE(missing);
    AuxBusFaults faults;
    faults.missing[missing] = true;
    AuxSession session(model, 50.0, BUS_WIRING, faults);
    EXPECT_EQ(session.connected(), missing == 0 ? SCOPE_NO_RESPONSE_AXIS1 : SCOPE_NO_RESPONSE_AXIS2);
    EXPECT_EQ(ScopeIsEquatorial(), SCOPE_NOT_CONNECTED) << "nothing stays connected";
    // One missing reply: the read time-outs, once.
    EXPECT_LT(session.connectMs(), 2000u);
  }
}

TEST_P(AuxModels, ControllerSilentMidGotoLeavesTheMountUsableAfterReconnecting) {
  const int32_t model = GetParam();
  AuxSession session(model, 100.0);
  ASSERT_EQ(session.connected(), SCOPE_OK);
  ASSERT_EQ(ScopeGotoAxes(-2.5, 0.9), SCOPE_OK);
  ASSERT_TRUE(WaitUntil([] { return (AxisStatus(0) & SCOPE_AXIS_SLEWING) != 0; }));
  session.line().SetFaults({.silent = true});
  // The worker gives up on the silent bus; the caller still gets answers.
  ASSERT_TRUE(WaitUntil([] { return CurrentMount()->References() == 1; }));
  double angle = 0.0;
  EXPECT_NE(ScopeGetAxisPosition(0, &angle), SCOPE_OK);
  DisconnectOnceWorkersEnd();

  session.line().SetFaults({});
  ASSERT_EQ(ScopeConnect(model, LATITUDE, 100.0), SCOPE_OK);
  ASSERT_EQ(ScopeGotoAxes(-0.5, 0.4), SCOPE_OK);
  ASSERT_TRUE(WaitUntil([] { return CurrentMount()->References() == 1 && MountState() == SCOPE_STATE_IDLE; }));
  const AnglePair axes = AxisPositions();
  EXPECT_LT(Separation(axes, {-0.5, 0.4}), ToleranceOf(model));
}

TEST_P(AuxModels, NoisyRepliesWithBadChecksumsAndWrongSendersAreStillRead) {
  const int32_t model = GetParam();
  AuxBusFaults faults;
  faults.badChecksum = true;
  faults.wrongSource = true;
  AuxSession session(model, SPEED_UP, BUS_WIRING, faults);
  session.line().SetFaults({.garbage = {0x00, 0xFF, 0x3A, 0x80, 0x00}});
  ASSERT_EQ(ScopeDisconnect(), SCOPE_OK);
  ASSERT_EQ(ScopeConnect(model, LATITUDE, 100.0), SCOPE_OK);
  ASSERT_EQ(ScopeGotoAxes(-1.2, 0.6), SCOPE_OK);
  ASSERT_TRUE(WaitUntil([] { return CurrentMount()->References() == 1 && MountState() == SCOPE_STATE_IDLE; }));
  EXPECT_LT(Separation(AxisPositions(), {-1.2, 0.6}), ToleranceOf(model));
}

TEST(AuxBusFaults, GarbageNeverCrashesOrHangs) {
  std::mt19937 random(15u);
  std::uniform_int_distribution<int> byte(0, 255);
  for (int round = 0; round < 12; ++round) {
    AuxSession session(round % 2, 100.0);
    std::vector<uint8_t> garbage(static_cast<size_t>(round * 5 + 1));
    for (uint8_t& b : garbage) b = static_cast<uint8_t>(byte(random));
    session.line().SetFaults({.garbage = garbage, .truncateTo = static_cast<size_t>(round % 7 + 2)});
    // Whatever comes back, every call returns.
    double axes[2];
    ScopeGetAxisPositions(axes);
    ScopeGotoAxes(0.2, 0.2);
    ScopeMoveAxis(1, 0.001);
    ScopeStopAxis(1);
    ScopeSyncHome();
  }
}

// --- Disconnecting at any moment ------------------------------------------------

TEST_P(AuxModels, DisconnectAtAnyMomentEndsEveryActivityPromptly) {
  const int32_t model = GetParam();
  std::mt19937 random(20261123u + static_cast<uint32_t>(model));
  std::uniform_int_distribution<uint32_t> testMs(0, 3000);
  constexpr int ROUNDS = 15;
  for (int round = 0; round < ROUNDS; ++round) {
    SCOPED_TRACE(round);
    AuxSession session(model, 500.0);
    ASSERT_EQ(session.connected(), SCOPE_OK);
    const double star[4] = {-2 * HOUR, 20 * DEG, 0.3, 0.4};
    switch (round % 5) {
      case 0:
        ASSERT_EQ(ScopeGotoEquatorial(-4 * HOUR, 10 * DEG), SCOPE_OK);
        break;
      case 1:
        ASSERT_EQ(ScopeMoveAxis(0, 0.01), SCOPE_OK);
        ASSERT_EQ(ScopeMoveAxis(1, -0.01), SCOPE_OK);
        break;
      case 2:
        ASSERT_EQ(ScopeSetTracking(1), SCOPE_OK);
        break;
      case 3:
        ASSERT_EQ(ScopeAlignOneStar(star), SCOPE_OK);
        break;
      case 4:
        ASSERT_EQ(ScopeSetBacklash(0, 2 * DEG), SCOPE_OK);
        ASSERT_EQ(ScopeMoveAxis(0, -SIDEREAL_RATE), SCOPE_OK);
        break;
    }
    WaitTestTime(testMs(random));
    EXPECT_LT(DisconnectOnceWorkersEnd(), std::chrono::seconds(5));
    EXPECT_EQ(ScopeIsEquatorial(), SCOPE_NOT_CONNECTED);
  }
}

INSTANTIATE_TEST_SUITE_P(Aux, AuxModels, ::testing::Values(ALTAZ, EQUATORIAL), AuxModelName);

// --- Over a pseudo-terminal, on the real clock -------------------------------------

TEST(AuxBusPty, ConnectsSyncsAndSlewsOverAPseudoTerminal) {
  emulation::WallClock wall;
  AuxBusControllers bus;
  bus.SetVersion(1, 5, 9);
  emulation::EmulatedLine line(bus, wall);
  line.SetWiring(BUS_WIRING);
  emulation::PtyHost host(line);
  ASSERT_TRUE(host.Start());
  SelectedPort selected(40, host.Path().c_str());
  ASSERT_TRUE(selected.bound());
  ScopeDisconnect();
  ASSERT_EQ(ScopeConnect(EQUATORIAL, LATITUDE, 100.0), SCOPE_OK);
  EXPECT_EQ(dynamic_cast<AuxBusMount&>(*CurrentMount()).noHandshake, 1u)
      << "a pseudo-terminal has no modem lines";
  EXPECT_EQ(dynamic_cast<AuxBusMount&>(*CurrentMount()).boardVersion, 5u * 65536u + 9u * 256u);
  ASSERT_EQ(ScopeSyncHome(), SCOPE_OK);
  EXPECT_LT(AngleGap(bus.Position(0, wall.NowMs()), HALF_PI), 1e-6) << "home is +90 on the controller";
  // A short slew at the controller's slow speed: about a second.
  const double target = HALF_PI + 0.5 * DEG;
  ASSERT_EQ(ScopeGotoAxes(-HALF_PI, target), SCOPE_OK);
  ASSERT_TRUE(WaitUntil([] { return CurrentMount()->References() == 1 && MountState() == SCOPE_STATE_IDLE; },
                        std::chrono::seconds(30)));
  double angle = 0.0;
  ASSERT_EQ(ScopeGetAxisPosition(1, &angle), SCOPE_OK);
  EXPECT_NEAR(angle, target, EQUATORIAL_TOLERANCE);
  EXPECT_LT(AngleGap(bus.Position(1, wall.NowMs()), target), EQUATORIAL_TOLERANCE);
  DisconnectOnceWorkersEnd();
}

}  // namespace
}  // namespace scopemount
