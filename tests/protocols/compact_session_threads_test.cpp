// Models 8 to 11 driven through the C boundary against the emulated compact
// board: GOTOs that arrive, tracking that holds, manual motion, syncs and
// alignment, a board that is silent, stops answering or sends noise, and
// disconnecting at any moment. One session runs over a real
// pseudo-terminal on the real clock.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <random>
#include <string>

#include "compact_controller.h"
#include "geometry/simulator_session.h"
#include "pty_host.h"
#include "support/controller_bench.h"
#include "support/selected_port.h"

namespace scopemount::testing {
namespace {

using emulation::CompactController;
using emulation::LineFaults;

constexpr double COMPACT_TOLERANCE = 0.0014544410433286077;  // 1/12 degree
// Slews of a minute of test time take a fraction of a second.
constexpr double SPEED_UP = 300.0;
constexpr int32_t MODELS[] = {8, 9, 10, 11};

// A connection to one compact model on the in-process bench, on a fast clock.
class CompactSession : public ControllerBench<CompactController> {
 public:
  explicit CompactSession(int32_t model, const LineFaults& faults = {})
      : ControllerBench(SPEED_UP) {
    line().SetFaults(faults);
    connected = Connect(model);
  }
  int32_t connected = -1;
};

// Real time a call took.
template <typename Call>
std::chrono::milliseconds Timed(Call&& call) {
  const auto start = std::chrono::steady_clock::now();
  call();
  return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() -
                                                               start);
}

class EveryCompactModel : public ::testing::TestWithParam<int32_t> {};

TEST_P(EveryCompactModel, GotosArriveAndTrackingHoldsTheSky) {
  CompactSession session(GetParam());
  ASSERT_EQ(session.connected, SCOPE_OK);
  EXPECT_EQ(session.port().baudRate.load(), 4800u);
  EXPECT_EQ(ScopeIsEquatorial(), 0);
  EXPECT_EQ(CurrentMount()->modelId, GetParam() % 2 == 0 ? 8 : 9);
  const AnglePair home = AxisPositions();
  EXPECT_EQ(home.lon, 0.0);
  EXPECT_EQ(home.lat, 0.0);
  EXPECT_EQ(MountState(), SCOPE_STATE_IDLE);

  ASSERT_EQ(ScopeGotoHorizontal(-2.0, 40 * DEG), SCOPE_OK);
  ASSERT_TRUE(WaitForWorkers());
  EXPECT_EQ(MountState(), SCOPE_STATE_IDLE);
  EXPECT_LE(Separation(HorizontalPosition(), {-2.0, 40 * DEG}), COMPACT_TOLERANCE);
  EXPECT_EQ(AxisStatus(1) & SCOPE_AXIS_SLEWING, 0u) << "axis 1's GOTO ended by standstill";

  const AnglePair target{1.5 * HOUR, 30 * DEG};
  const uint32_t requested = Tick();
  ASSERT_EQ(ScopeGotoEquatorial(target.lon, target.lat), SCOPE_OK);
  ASSERT_TRUE(WaitForTracking()) << "the GOTO never ended in tracking";
  EXPECT_LE(TrackedError(ReadSky(), target, requested), COMPACT_TOLERANCE);
  WaitTestTime(120000);
  EXPECT_EQ(MountState(), SCOPE_STATE_TRACKING);
  EXPECT_LE(TrackedError(ReadSky(), target, requested), COMPACT_TOLERANCE)
      << "two minutes of Alt/Az tracking";
  EXPECT_EQ(ScopeDisconnect(), SCOPE_OK);
}

INSTANTIATE_TEST_SUITE_P(Compact, EveryCompactModel, ::testing::ValuesIn(MODELS),
                         [](const auto& info) { return "Model" + std::to_string(info.param); });

TEST(CompactMounts, ManualMotionStopSyncAndAlignment) {
  CompactSession session(9);
  ASSERT_EQ(session.connected, SCOPE_OK);
  ASSERT_EQ(ScopeSyncAxis(0, 2.0), SCOPE_OK);
  ASSERT_EQ(ScopeSyncAxis(1, 40 * DEG), SCOPE_OK);
  AnglePair axes = AxisPositions();
  EXPECT_NEAR(axes.lon, 2.0, 1e-9) << "a declared azimuth is exact";
  EXPECT_NEAR(axes.lat, 40 * DEG, 1e-5) << "a loaded altitude is within a count";

  const double rate = 100 * SIDEREAL_RATE;
  ASSERT_EQ(ScopeMoveAxis(1, rate), SCOPE_OK);
  ASSERT_TRUE(WaitForWorkers());
  EXPECT_EQ(MountState(), SCOPE_STATE_MOVING);
  EXPECT_EQ(AxisStatus(1), SCOPE_AXIS_RUNNING | SCOPE_AXIS_POSITIVE);
  const uint32_t started = Tick();
  WaitTestTime(20000);
  const double moved = AxisPositions().lat - axes.lat;
  const double most = rate * SecondsBetween(started - 1000, Tick());
  EXPECT_GT(moved, rate * 19.0 - 0.001) << "the board ran at the commanded rate";
  EXPECT_LT(moved, most + 0.001);
  ASSERT_EQ(ScopeStopAxis(1), SCOPE_OK);
  ASSERT_TRUE(WaitForWorkers());
  EXPECT_EQ(AxisStatus(1), SCOPE_AXIS_STOPPED);
  axes = AxisPositions();
  WaitTestTime(5000);
  EXPECT_EQ(AxisPositions().lat, axes.lat) << "stopped means standing";

  // A star centred with the axes a little off their nominal angles.
  const AnglePair star{-1 * HOUR, 20 * DEG};
  const AnglePair nominal = SkyToAxes(star);
  const double observation[4] = {star.lon, star.lat, nominal.lon + 0.01, nominal.lat - 0.005};
  ASSERT_EQ(ScopeAlignOneStar(observation), SCOPE_OK);
  double misalignment = NAN;
  EXPECT_EQ(ScopeGetAlignmentQuality(&misalignment), 100);
  ASSERT_TRUE(WaitForTracking()) << "a one-star alignment starts tracking";
  const AnglePair aligned = SkyToAxes(star);
  EXPECT_NEAR(aligned.lon, observation[2], 1e-9);
  EXPECT_NEAR(aligned.lat, observation[3], 1e-9);
}

TEST(CompactMounts, ASilentBoardFailsTheConnectionAndLeavesNothingConnected) {
  const std::pair<const char*, LineFaults> silences[] = {
      {"silent", {.silent = true}},
      {"too late", {.replyDelayMs = 2000}},
  };
  for (const auto& [what, faults] : silences) {
    std::unique_ptr<CompactSession> session;
    const auto took = Timed([&] { session = std::make_unique<CompactSession>(8, faults); });
    EXPECT_EQ(session->connected, SCOPE_NO_RESPONSE_AXIS1) << what;
    EXPECT_EQ(ScopeIsEquatorial(), SCOPE_NOT_CONNECTED) << what;
    EXPECT_LT(took, std::chrono::seconds(5)) << what << ": within the read time-out";
  }
}

// A board that goes quiet mid-GOTO, or noise on the line (which can read as
// a GOTO that never ends): the library stays at the caller's service, a
// disconnect is prompt, and the next connection works.
TEST(CompactMounts, FaultsMidGotoNeverCrashHangOrLeaveTheMountUnusable) {
  const LineFaults faults[] = {
      {.stopAfterCommands = 6},
      {.garbage = {0xFF, 0x12, 0x34}},
      {.garbage = {0x00}},
      {.truncateTo = 1},
      {.byteGapMs = 100},
  };
  for (size_t i = 0; i < std::size(faults); ++i) {
    CompactSession session(11);
    ASSERT_EQ(session.connected, SCOPE_OK);
    LineFaults fault = faults[i];
    if (fault.stopAfterCommands != emulation::NO_LIMIT) {
      fault.stopAfterCommands += session.line().CommandsSeen();
    }
    session.line().SetFaults(fault);
    const size_t seen = session.line().CommandsSeen();
    ASSERT_EQ(ScopeGotoAxes(1.0, 0.3), SCOPE_OK);
    EXPECT_TRUE(WaitUntil([&] { return session.line().CommandsSeen() > seen + 8; }));
    double angles[2];
    const int32_t read = ScopeGetAxisPositions(angles);
    EXPECT_TRUE(read == SCOPE_OK || read == SCOPE_NO_RESPONSE_AXIS1) << "fault " << i;
    EXPECT_LT(DisconnectOnceWorkersEnd(), std::chrono::seconds(5))
        << "fault " << i;

    session.line().SetFaults({});
    ASSERT_EQ(ScopeConnect(11, 0.6, 100.0), SCOPE_OK) << "fault " << i;
    ASSERT_EQ(ScopeGotoAxes(0.5, 0.2), SCOPE_OK);
    ASSERT_TRUE(WaitForWorkers()) << "fault " << i;
    const AnglePair axes = AxisPositions();
    EXPECT_NEAR(axes.lon, 0.5, COMPACT_TOLERANCE) << "fault " << i;
    EXPECT_NEAR(axes.lat, 0.2, COMPACT_TOLERANCE) << "fault " << i;
  }
}

TEST(CompactMounts, DisconnectingAtAnyMomentEndsEveryActivityPromptly) {
  std::mt19937 random(20261123u);
  std::uniform_int_distribution<size_t> commands(0, 24);
  constexpr int ROUNDS = 20;
  for (int round = 0; round < ROUNDS; ++round) {
    CompactSession session(8 + round % 4);
    ASSERT_EQ(session.connected, SCOPE_OK);
    const size_t seen = session.line().CommandsSeen();
    const double star[4] = {-2 * HOUR, 20 * DEG, 0.3, 0.4};
    switch (round % 5) {
      case 0: ASSERT_EQ(ScopeGotoEquatorial(-4 * HOUR, 10 * DEG), SCOPE_OK); break;
      case 1: ASSERT_EQ(ScopeGotoAxes(2.0, 0.8), SCOPE_OK); break;
      case 2:
        ASSERT_EQ(ScopeMoveAxis(0, 0.01), SCOPE_OK);
        ASSERT_EQ(ScopeMoveAxis(1, -0.01), SCOPE_OK);
        break;
      case 3: ASSERT_EQ(ScopeSetTracking(1), SCOPE_OK); break;
      case 4: ASSERT_EQ(ScopeAlignOneStar(star), SCOPE_OK); break;
    }
    // Some commands into the activity (or its end, whichever comes first).
    const size_t until = seen + commands(random);
    WaitUntil([&] { return session.line().CommandsSeen() >= until; }, std::chrono::seconds(1));
    EXPECT_LT(DisconnectOnceWorkersEnd(), std::chrono::seconds(5))
        << "round " << round;
    EXPECT_EQ(ScopeIsEquatorial(), SCOPE_NOT_CONNECTED);
  }
}

// The real clock over a pseudo-terminal: a short GOTO of both axes.
TEST(CompactMounts, ShortGotoOverAPseudoTerminalOnTheRealClock) {
  ScopeDisconnect();
  emulation::WallClock wall;
  CompactController board;
  emulation::EmulatedLine line(board, wall);
  emulation::PtyHost host(line);
  ASSERT_TRUE(host.Start());
  SelectedPort selected(41, host.Path().c_str());
  ASSERT_TRUE(selected.bound());
  ASSERT_EQ(ScopeConnect(9, 0.6, 100.0), SCOPE_OK);
  ASSERT_EQ(ScopeGotoAxes(2 * DEG, 1 * DEG), SCOPE_OK);
  ASSERT_TRUE(WaitUntil([] { return CurrentMount()->References() == 1; }, std::chrono::seconds(30)));
  const AnglePair axes = AxisPositions();
  EXPECT_NEAR(axes.lon, 2 * DEG, COMPACT_TOLERANCE);
  EXPECT_NEAR(axes.lat, 1 * DEG, COMPACT_TOLERANCE);
  EXPECT_EQ(ScopeDisconnect(), SCOPE_OK);
}

}  // namespace
}  // namespace scopemount::testing
