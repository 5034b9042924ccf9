// Models 2 to 5 end to end through the C boundary against the behavioural
// controller: GOTOs by sky and horizontal position, tracking, manual
// motion, sync, home, alignment, disconnecting at any moment, and a
// controller that fails.
#include <gtest/gtest.h>

#include <chrono>
#include <random>
#include <thread>

#include "platform/port_names.h"
#include "protocols/motorcontroller/motor_controller_mount.h"
#include "protocols/motor_controller_session.h"
#include "pty_host.h"
#include "support/selected_port.h"

namespace scopemount::testing::motor_controller_tests {
namespace {

// A 90 degree slew takes half a real second; the 2000 ms line wait stays
// long against a busy machine's stalls.
constexpr double SPEED_UP = 50.0;
constexpr double LATITUDE = 0.6;
constexpr double RATE_TOLERANCE = 0.01;  // step periods are whole timer ticks

bool NearRate(double measured, double expected) {
  return std::fabs(measured - expected) <= RATE_TOLERANCE * std::fabs(expected);
}

class MotorControllerModels : public ::testing::TestWithParam<int32_t> {};

TEST_P(MotorControllerModels, GotoBySkyThenTrackingThenByHorizontalPosition) {
  const int32_t model = GetParam();
  MotorControllerBench bench(SPEED_UP);
  ASSERT_EQ(bench.Connect(model), SCOPE_OK);
  const AnglePair target{-1.5 * HOUR, 20 * DEG};
  const uint32_t requested = Tick();
  ASSERT_EQ(ScopeGotoEquatorial(target.lon, target.lat), SCOPE_OK);
  ASSERT_TRUE(WaitOnController([] { return MountState() == SCOPE_STATE_TRACKING; }));
  const TimedReading reading = ReadSky();
  EXPECT_LE(TrackedError(reading, target, requested), MotorControllerTolerance(model));

  if (IsEquatorialModel(model)) {
    EXPECT_TRUE(WaitOnController([&] { return NearRate(bench.RunRate(0), SIDEREAL_RATE); }))
        << "the hour-angle axis runs at the sidereal rate: " << bench.RunRate(0);
    EXPECT_EQ(bench.RunRate(1), 0.0);
  } else {
    EXPECT_TRUE(WaitOnController([&] { return bench.RunRate(0) != 0.0 && bench.RunRate(1) != 0.0; }))
        << "the tracking loop runs both axes";
  }

  const double azimuth = 1.0;
  const double altitude = 40 * DEG;
  ASSERT_EQ(ScopeGotoHorizontal(azimuth, altitude), SCOPE_OK);
  ASSERT_TRUE(WaitOnController([] { return CurrentMount()->References() == 1; }));
  EXPECT_EQ(MountState(), SCOPE_STATE_IDLE);
  EXPECT_LE(Separation(HorizontalPosition(), {azimuth, altitude}), MotorControllerTolerance(model));
}

TEST_P(MotorControllerModels, ManualMotionStopSyncAndHome) {
  const int32_t model = GetParam();
  MotorControllerBench bench(SPEED_UP);
  ASSERT_EQ(bench.Connect(model), SCOPE_OK);
  const double count = TWO_PI / emulation::MotorControllerSettings{}.countsPerRevolution[0];

  ASSERT_EQ(ScopeSyncHome(), SCOPE_OK);
  const AnglePair home = AxisPositions();
  const AnglePair expectedHome = IsEquatorialModel(model) ? AnglePair{-HALF_PI, HALF_PI}
                                                          : AnglePair{0.0, 0.0};
  EXPECT_NEAR(home.lon, expectedHome.lon, count);
  EXPECT_NEAR(home.lat, expectedHome.lat, count);
  ASSERT_EQ(ScopeSyncAxis(0, 0.3), SCOPE_OK);
  EXPECT_NEAR(AxisPositions().lon, 0.3, count);

  // Forward, then reversed (the controller must be stopped before the new
  // mode), then stopped.
  const double rate = 100 * SIDEREAL_RATE;
  for (double r : {rate, -rate, 300 * rate}) {
    ASSERT_EQ(ScopeMoveAxis(1, r), SCOPE_OK);
    const double expected = std::copysign(std::min(std::fabs(r), 3.4 * DEG), r);
    EXPECT_TRUE(WaitOnController([&] { return NearRate(bench.RunRate(1), expected); }))
        << "rate " << r << " runs at " << bench.RunRate(1);
    EXPECT_EQ(MountState(), SCOPE_STATE_MOVING);
  }
  ASSERT_EQ(ScopeStopAxis(1), SCOPE_OK);
  EXPECT_TRUE(WaitOnController([&] { return !bench.controller().IsMoving(1, bench.NowMs()); }));
  // A stopped axis keeps reporting the direction and speed mode it last had.
  EXPECT_TRUE(WaitOnController([] { return (AxisStatus(1) & SCOPE_AXIS_STOPPED) != 0; }));
}

TEST_P(MotorControllerModels, OneAndTwoStarAlignment) {
  const int32_t model = GetParam();
  MotorControllerBench bench(SPEED_UP);
  ASSERT_EQ(bench.Connect(model), SCOPE_OK);
  const AnglePair first{-1.0 * HOUR, 25 * DEG};
  const AnglePair second{2.0 * HOUR, 50 * DEG};
  // The user centres the first star where the axes now stand.
  const AnglePair axes = AxisPositions();
  const double star[4] = {first.lon, first.lat, axes.lon, axes.lat};
  const uint32_t aligned = Tick();
  ASSERT_EQ(ScopeAlignOneStar(star), SCOPE_OK);
  EXPECT_LE(TrackedError(ReadSky(), first, aligned), MotorControllerTolerance(model))
      << "the axes read the star";

  const AnglePair a1 = SkyToAxes(first);
  const AnglePair a2 = SkyToAxes(second);
  const double o1[4] = {first.lon, first.lat, a1.lon, a1.lat};
  const double o2[4] = {second.lon, second.lat, a2.lon, a2.lat};
  EXPECT_EQ(ScopeAlignTwoStars(o1, o2), SCOPE_OK);
}

INSTANTIATE_TEST_SUITE_P(MotorControllerMounts, MotorControllerModels,
                         ::testing::ValuesIn(MOTOR_CONTROLLER_MODELS), MotorControllerModelName);

TEST(MotorControllerMounts, SouthernEquatorialGotoTracksBackwards) {
  MotorControllerBench bench(SPEED_UP);
  ASSERT_EQ(bench.Connect(3, -LATITUDE), SCOPE_OK);
  const AnglePair target{1.5 * HOUR, -5 * DEG};
  const uint32_t requested = Tick();
  ASSERT_EQ(ScopeGotoEquatorial(target.lon, target.lat), SCOPE_OK);
  ASSERT_TRUE(WaitOnController([] { return MountState() == SCOPE_STATE_TRACKING; }));
  EXPECT_LE(TrackedError(ReadSky(), target, requested), MotorControllerTolerance(3));
  EXPECT_TRUE(WaitOnController([&] { return NearRate(bench.RunRate(0), -SIDEREAL_RATE); }))
      << bench.RunRate(0);
  const std::string mode = bench.controller().LastMotionMode(0);
  EXPECT_TRUE(mode[1] == '2' || mode[1] == '3') << mode;
}

TEST(MotorControllerMounts, AnEchoingLineWorksEndToEnd) {
  MotorControllerBench bench(SPEED_UP);
  bench.line().SetWiring(emulation::LineWiring{.echo = true});
  ASSERT_EQ(bench.Connect(2), SCOPE_OK);
  EXPECT_EQ(dynamic_cast<MotorControllerMount&>(*CurrentMount()).echoesCommands, 1u);
  ASSERT_EQ(ScopeGotoAxes(0.3, 0.4), SCOPE_OK);
  ASSERT_TRUE(WaitOnController([] { return CurrentMount()->References() == 1; }));
  EXPECT_LE(Separation(AxisPositions(), {0.3, 0.4}), MotorControllerTolerance(2));
}

TEST(MotorControllerMounts, ModelFiveIsStoredAsTwo) {
  MotorControllerBench bench(SPEED_UP);
  ASSERT_EQ(bench.Connect(5), SCOPE_OK);
  EXPECT_EQ(CurrentMount()->modelId, 2);
  EXPECT_EQ(bench.Connect(5), SCOPE_ALREADY_CONNECTED);
  EXPECT_EQ(bench.Connect(2), SCOPE_OK) << "the class's own number re-applies the site";
}

TEST(MotorControllerMounts, DisconnectAtAnyMoment) {
  std::mt19937 random(14);
  std::uniform_int_distribution<int> microseconds(0, 40000);
  for (int32_t model : {2, 3}) {
    MotorControllerBench bench(SPEED_UP);
    for (int round = 0; round < 12; ++round) {
      SCOPED_TRACE(round);
      ASSERT_EQ(bench.Connect(model), SCOPE_OK);
      if (round % 3 == 1) ScopeMoveAxis(0, 50 * SIDEREAL_RATE);
      if (round % 3 != 1) ScopeGotoEquatorial((round - 6) * 0.3, 0.2);
      // Mid-GOTO, mid-exchange, or during the tracking that follows.
      std::this_thread::sleep_for(std::chrono::microseconds(microseconds(random)));
      ScopeDisconnect();
      uint32_t state = 0;
      EXPECT_EQ(ScopeGetMountStatus(&state), SCOPE_NOT_CONNECTED);
    }
  }
}

TEST(MotorControllerMounts, ASilentControllerLeavesNothingConnected) {
  for (int32_t model : MOTOR_CONTROLLER_MODELS) {
    MotorControllerBench bench(SPEED_UP);
    bench.line().SetFaults(emulation::LineFaults{.silent = true});
    EXPECT_EQ(bench.Connect(model), SCOPE_NO_RESPONSE_AXIS1) << model;
    uint32_t state = 0;
    EXPECT_EQ(ScopeGetMountStatus(&state), SCOPE_NOT_CONNECTED);
  }
}

TEST(MotorControllerMounts, GarbledRepliesEndInResultCodes) {
  const struct {
    const char* name;
    emulation::LineFaults faults;
    bool connects;
  } cases[] = {
      {"noise before each reply", {.garbage = {0x00, 'Z', 0xFF, '\r'}}, true},
      {"slow bytes", {.byteGapMs = 20}, true},
      {"refusals in the noise", {.garbage = {'!', '\r'}}, false},
      {"cut to three bytes", {.truncateTo = 3}, false},
      {"cut to one byte", {.truncateTo = 1}, false},
      {"late beyond the time-out", {.replyDelayMs = 800}, false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    MotorControllerBench bench(SPEED_UP);
    bench.line().SetFaults(c.faults);
    const int32_t result = bench.Connect(3);
    if (c.connects) {
      EXPECT_EQ(result, SCOPE_OK);
      EXPECT_EQ(ScopeGotoAxes(-1.0, 1.2), SCOPE_OK);
      EXPECT_TRUE(WaitOnController([] { return CurrentMount()->References() == 1; }));
    } else {
      EXPECT_TRUE(result == SCOPE_NO_RESPONSE_AXIS1 || result == SCOPE_NO_RESPONSE_AXIS2 ||
                  result == SCOPE_INVALID_PARAMETER)
          << result;
    }
    ScopeDisconnect();
  }
}

TEST(MotorControllerMounts, AControllerThatFallsSilentMidGotoLeavesAUsableMount) {
  for (int32_t model : {2, 3}) {
    SCOPED_TRACE(model);
    MotorControllerBench bench(SPEED_UP);
    ASSERT_EQ(bench.Connect(model), SCOPE_OK);
    ASSERT_EQ(ScopeGotoAxes(1.5, 1.0), SCOPE_OK);
    ASSERT_TRUE(WaitOnController([&] { return bench.controller().IsMoving(0, bench.NowMs()); }));
    bench.line().SetFaults(emulation::LineFaults{.silent = true});
    // The worker gives up; the status getters still answer.
    ASSERT_TRUE(WaitOnController([] { return CurrentMount()->References() == 1; }));
    uint32_t state = 0;
    EXPECT_EQ(ScopeGetMountStatus(&state), SCOPE_OK);
    ScopeDisconnect();

    bench.line().SetFaults(emulation::LineFaults{});
    ASSERT_EQ(bench.Connect(model), SCOPE_OK) << "connects again";
    EXPECT_EQ(ScopeGotoAxes(0.2, 0.9), SCOPE_OK);
    ASSERT_TRUE(WaitOnController([] { return CurrentMount()->References() == 1; }));
    EXPECT_LE(Separation(AxisPositions(), {0.2, 0.9}), MotorControllerTolerance(model));
  }
}

// The same through a real pseudo-terminal on the real clock.
TEST(MotorControllerMounts, GotoOverAPseudoTerminal) {
  emulation::MotorControllerEmulator controller;
  emulation::WallClock wall;
  emulation::EmulatedLine line(controller, wall);
  emulation::PtyHost host(line);
  ASSERT_TRUE(host.Start());
  SelectedPort selected(41, host.Path().c_str());
  ASSERT_TRUE(selected.bound());
  ScopeDisconnect();
  ASSERT_EQ(ScopeConnect(2, LATITUDE, 100.0), SCOPE_OK);
  ASSERT_EQ(ScopeGotoAxes(2 * DEG, 1 * DEG), SCOPE_OK);
  ASSERT_TRUE(WaitOnController([] { return CurrentMount()->References() == 1; }));
  EXPECT_LE(Separation(AxisPositions(), {2 * DEG, 1 * DEG}), MotorControllerTolerance(2));
  EXPECT_NEAR(controller.Count(0, wall.NowMs()), 2 * DEG / TWO_PI * 3600000, 1000);
  ScopeDisconnect();
}

}  // namespace
}  // namespace scopemount::testing::motor_controller_tests
