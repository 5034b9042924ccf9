// Every hardware model driven the way an application drives it: through the
// C boundary, against its protocol's emulated controller on the in-process
// bench, on a fast test clock. One body of scenarios runs over a table of
// the ten models. Manual motion, disconnects at any moment and take-ups are
// the simulators' tests (the workers are shared; each protocol's rate, stop
// and status bytes are its wire test's); a disconnect mid-GOTO on a faulty
// line is here. The port over a real pseudo-terminal is the serial tests'
// part.
#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "aux_bus_controllers.h"
#include "compact_controller.h"
#include "emulated_line.h"
#include "geometry/simulator_session.h"
#include "motor_controller_emulator.h"
#include "support/controller_bench.h"
#include "support/emulated_port.h"
#include "support/fast_clock.h"

namespace scopemount::testing {
namespace {

using emulation::LineFaults;
using emulation::LineWiring;
using Controllers = std::unique_ptr<emulation::ControllerModel>;

constexpr double LATITUDE = 0.6;
constexpr double ALTAZ_GOTO = 0.0014544410433286077;       // 1/12 degree
constexpr double EQUATORIAL_GOTO = 0.0005817764173314432;  // 1/30 degree
const LineWiring AUX_BUS{.echo = true, .rtsLoopsToCts = true};
// A motor-controller cable that echoes the host's bytes (model 5 has one).
const LineWiring ECHOING{.echo = true};

Controllers AuxBus() { return std::make_unique<emulation::AuxBusControllers>(); }
Controllers MotorController() { return std::make_unique<emulation::MotorControllerEmulator>(); }
Controllers CompactBoard() { return std::make_unique<emulation::CompactController>(); }

// One model: what it is stored as, its geometry and its controller.
struct Model {
  int32_t number;
  int32_t storedAs;
  bool equatorial;
  Controllers (*make)();
  LineWiring wiring;
  // Test time runs this much faster than the wall; the line's 2 s busy wait
  // stays long against a busy machine's stalls.
  double speed;
  double Tolerance() const { return equatorial ? EQUATORIAL_GOTO : ALTAZ_GOTO; }
};

const Model MODELS[] = {
    {0, 0, false, AuxBus, AUX_BUS, 100.0},         {1, 1, true, AuxBus, AUX_BUS, 100.0},
    {2, 2, false, MotorController, {}, 50.0},      {3, 3, true, MotorController, {}, 50.0},
    {4, 3, true, MotorController, {}, 50.0},       {5, 2, false, MotorController, ECHOING, 50.0},
    {8, 8, false, CompactBoard, {}, 100.0},        {9, 9, false, CompactBoard, {}, 100.0},
    {10, 8, false, CompactBoard, {}, 100.0},       {11, 9, false, CompactBoard, {}, 100.0},
};

void PrintTo(const Model& model, std::ostream* out) { *out << "model " << model.number; }

// A model's controller on the bench, connected; the disconnect at the end
// lets no worker outlive the bench or the clock.
class Session {
 public:
  explicit Session(const Model& model) : clock_(model.speed), port_(model.make()) {
    DisconnectOnceWorkersEnd();
    line().SetWiring(model.wiring);
    connected = Connect(model.number);
  }
  ~Session() { DisconnectOnceWorkersEnd(); }

  int32_t Connect(int32_t number) { return ScopeConnect(number, LATITUDE, 100.0); }
  emulation::EmulatedLine& line() { return port_.line(); }

  int32_t connected = -1;

 private:
  ScopedFastClock clock_;
  EmulatedPort port_;
};

bool WorkersEndedAndNotSlewing() {
  return CurrentMount()->References() == 1 && MountState() != SCOPE_STATE_SLEWING;
}

class EveryModel : public ::testing::TestWithParam<Model> {};

TEST_P(EveryModel, GotoBySkyArrivesAndTracks) {
  const Model& model = GetParam();
  Session session(model);
  ASSERT_EQ(session.connected, SCOPE_OK);
  EXPECT_EQ(ScopeIsEquatorial(), model.equatorial ? 1 : 0);
  EXPECT_EQ(CurrentMount()->modelId, model.storedAs);

  const AnglePair target{-1.5 * HOUR, 20 * DEG};
  const uint32_t requested = Tick();
  ASSERT_EQ(ScopeGotoEquatorial(target.lon, target.lat), SCOPE_OK);
  ASSERT_TRUE(WaitForTracking()) << "the GOTO never ended in tracking";
  EXPECT_LE(TrackedError(ReadSky(), target, requested), model.Tolerance());
}

// A controller that falls silent, stops answering or sends noise mid-GOTO:
// every call returns, a disconnect is prompt, and the next connection's GOTO
// by axes arrives.
TEST_P(EveryModel, FaultsMidGotoNeverHangOrLeaveTheMountUnusable) {
  const Model& model = GetParam();
  struct Fault {
    const char* what;
    LineFaults faults;
    bool workerGivesUp;
  };
  const std::vector<uint8_t> noise = {0x3B, 0xA5, 0x0D, 0x3D, 0x00, 0xFF, 0x3A, 0x81, 0x17};
  const Fault faults[] = {
      {"silent", {.silent = true}, true},
      {"quiet after some commands", {.stopAfterCommands = 4}, false},
      {"noise before each reply", {.garbage = noise}, false},
      {"replies cut short", {.truncateTo = 2}, false},
  };
  for (const Fault& fault : faults) {
    SCOPED_TRACE(fault.what);
    Session session(model);
    ASSERT_EQ(session.connected, SCOPE_OK);
    const size_t seen = session.line().CommandsSeen();
    ASSERT_EQ(ScopeGotoAxes(-2.5, 0.9), SCOPE_OK);
    ASSERT_TRUE(WaitUntil([&] { return session.line().CommandsSeen() > seen + 3; }));
    LineFaults faults = fault.faults;
    if (faults.stopAfterCommands != emulation::NO_LIMIT) {
      faults.stopAfterCommands += session.line().CommandsSeen();
    }
    session.line().SetFaults(faults);
    if (fault.workerGivesUp) {
      ASSERT_TRUE(WaitForWorkers()) << "the worker gives up on a silent line";
      double angle = 0.0;
      EXPECT_NE(ScopeGetAxisPosition(0, &angle), SCOPE_OK);
    }
    double axes[2];
    ScopeGetAxisPositions(axes);
    ScopeMoveAxis(1, 0.001);
    ScopeStopAxis(1);
    ScopeSyncHome();
    uint32_t state = 0;
    EXPECT_EQ(ScopeGetMountStatus(&state), SCOPE_OK) << "the status getters answer from memory";
    EXPECT_LT(DisconnectOnceWorkersEnd(), std::chrono::seconds(5));

    session.line().SetFaults({});
    ASSERT_EQ(session.Connect(model.number), SCOPE_OK) << "connects again";
    // Axis targets in the usual range, whatever range the mount reads in.
    const AnglePair target{10 * DEG, 5 * DEG};
    ASSERT_EQ(ScopeGotoAxes(target.lon, target.lat), SCOPE_OK);
    ASSERT_TRUE(WaitUntil(WorkersEndedAndNotSlewing));
    EXPECT_LE(Separation(AxisPositions(), target), model.Tolerance()) << AxisPositions().lon;
  }
}

INSTANTIATE_TEST_SUITE_P(Hardware, EveryModel, ::testing::ValuesIn(MODELS),
                         [](const auto& info) { return "Model" + std::to_string(info.param.number); });

}  // namespace
}  // namespace scopemount::testing
