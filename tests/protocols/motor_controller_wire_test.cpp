// The exact bytes the motor-controller layer writes for each operation and
// how it reads each reply form, against a scripted controller. Expected
// frames are worked out by hand for the reference controller below.
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "protocols/motorcontroller/motor_controller_altaz_mount.h"
#include "protocols/motorcontroller/motor_controller_equatorial_mount.h"
#include "support/angles.h"
#include "support/scripted_controller.h"

namespace scopemount::testing {
namespace {

// Replies are scripted by the frame between ':' and '\r' (e.g. "j1");
// unscripted frames are acknowledged, and a lone ':' (the echo probe) is
// no frame.
bool IsFrame(const std::string& command) { return command.size() >= 2 && command.back() == '\r'; }
struct MotorControllerLine : ScriptedLine {
  MotorControllerLine()
      : ScriptedLine(
            100.0,
            [](const std::string& command) {
              return IsFrame(command) ? command.substr(1, command.size() - 2) : command;
            },
            [](const std::string& command) { return IsFrame(command) ? "=\r" : SILENCE; }) {}
};

// A reference controller with round constants: 1,000,000 counts per revolution on
// both axes, a 50,000 Hz timer, high-speed ratio 16.
constexpr double EXAMPLE_COUNTS = 1000000.0;
constexpr uint32_t EXAMPLE_TIMER = 50000;
void LoadExampleConstants(MotorControllerMount& mount) {
  for (uint32_t axis = 0; axis < AXIS_COUNT; ++axis) {
    mount.countsPerRadian[axis] = EXAMPLE_COUNTS / TWO_PI;
    mount.radiansPerCount[axis] = TWO_PI / EXAMPLE_COUNTS;
    mount.timerFrequency[axis] = EXAMPLE_TIMER;
    mount.periodFactor[axis] = EXAMPLE_TIMER / mount.countsPerRadian[axis];
    mount.highSpeedRatio[axis] = 16;
    mount.brakeSteps[axis] = BRAKE_STEPS;
    mount.lowSpeedGotoLimit[axis] = 7427;
  }
}

constexpr double RADIANS_PER_COUNT = TWO_PI / EXAMPLE_COUNTS;
const std::string AT_ZERO = "=000080\r";  // j: count 0x800000

using Script = std::vector<std::pair<std::string, std::vector<std::string>>>;
using Operation = std::function<int32_t(MotorControllerMount&)>;
using Check = std::function<void(MotorControllerMount&)>;

struct WireCase {
  const char* name;
  bool equatorial;
  Script script;
  Operation operation;
  std::string written;
  int32_t result;
  Check check = nullptr;   // what the operation left in the mount
  Check setup = nullptr;   // before the operation
  bool echoingLine = false;
};

OwnedMount<MotorControllerMount> MakeMount(bool equatorial) {
  if (equatorial) return OwnedMount<MotorControllerMount>(new MotorControllerEquatorialMount);
  return OwnedMount<MotorControllerMount>(new MotorControllerAltAzMount);
}

// Each case on a fresh line and mount; an opening reads the controller's
// constants itself, any other operation runs on the reference controller's.
void RunCases(const std::vector<WireCase>& cases, bool opening = false) {
  for (const WireCase& c : cases) {
    SCOPED_TRACE(c.name);
    MotorControllerLine line;
    line.port.line().SetWiring(emulation::LineWiring{.echo = c.echoingLine});
    for (const auto& [frame, replies] : c.script) line.controller().Script(frame, replies);
    OwnedMount<MotorControllerMount> mount = MakeMount(c.equatorial);
    EXPECT_EQ(line.port.baudRate, MOTOR_CONTROLLER_BAUD);
    if (!opening) LoadExampleConstants(*mount);
    if (c.setup) c.setup(*mount);
    EXPECT_EQ(c.operation(*mount), c.result);
    EXPECT_EQ(line.Written(), c.written);
    if (c.check) c.check(*mount);
  }
}

Operation ReadPosition(uint32_t axis) {
  return [axis](MotorControllerMount& m) { return m.ReadAxisPosition(axis); };
}
Operation ReadStatus(uint32_t axis) {
  return [axis](MotorControllerMount& m) { return m.ReadAxisStatus(axis); };
}
Operation SlewTo(uint32_t axis, double angle) {
  return [axis, angle](MotorControllerMount& m) { return m.SlewAxisTo(axis, angle); };
}
Operation Rate(uint32_t axis, double rate) {
  return [axis, rate](MotorControllerMount& m) { return m.SetAxisRate(axis, rate); };
}
Check PositionIs(uint32_t axis, double angle) {
  return [axis, angle](MotorControllerMount& m) { EXPECT_DOUBLE_EQ(m.axisPosition[axis], angle); };
}
Check StatusIs(uint32_t axis, uint32_t status) {
  return [axis, status](MotorControllerMount& m) { EXPECT_EQ(m.axisStatus[axis], status); };
}
Check RateIs(uint32_t axis, double rate) {
  return [axis, rate](MotorControllerMount& m) { EXPECT_DOUBLE_EQ(m.axisRate[axis], rate); };
}

TEST(MotorControllerWire, PositionRepliesInEveryForm) {
  const std::string overlong = "=" + std::string(20, '0') + "\r";
  RunCases({
      {"count 0x800000 is angle 0", false, {{"j1", {AT_ZERO}}}, ReadPosition(0), ":j1\r", Ok,
       PositionIs(0, 0.0)},
      {"count 0 is -0x800000 counts", false, {{"j2", {"=000000\r"}}}, ReadPosition(1), ":j2\r",
       Ok, PositionIs(1, -0x800000 * RADIANS_PER_COUNT)},
      {"the echo and noise come first", false, {{"j1", {":j1\rx\x01?" + AT_ZERO}}},
       ReadPosition(0), ":j1\r", Ok, PositionIs(0, 0.0)},
      {"refused", false, {{"j1", {"!\r"}}}, ReadPosition(0), ":j1\r", InvalidParameter},
      {"lower-case digit", false, {{"j1", {"=00a080\r"}}}, ReadPosition(0), ":j1\r",
       InvalidParameter},
      {"empty payload", false, {{"j1", {"=\r"}}}, ReadPosition(0), ":j1\r", InvalidParameter},
      {"no reply on axis 1", false, {{"j2", {SILENCE}}}, ReadPosition(1), ":j2\r",
       NoResponseAxis2},
      {"no carriage return", false, {{"j1", {"=0000"}}}, ReadPosition(0), ":j1\r",
       NoResponseAxis1},
      {"longer than the reply buffer", false, {{"j1", {overlong}}}, ReadPosition(0), ":j1\r",
       NoResponseAxis1},
      {"equatorial axis 0 at count 0x800000 is -pi/2", true, {{"j1", {AT_ZERO}}},
       ReadPosition(0), ":j1\r", Ok, PositionIs(0, -HALF_PI)},
      {"equatorial axis 1 is direct", true, {{"j2", {AT_ZERO}}}, ReadPosition(1), ":j2\r", Ok,
       PositionIs(1, 0.0)},
  });
}

TEST(MotorControllerWire, StatusDigits) {
  RunCases({
      {"GOTO running", false, {{"f1", {"=011\r"}}}, ReadStatus(0), ":f1\r", Ok,
       StatusIs(0, AXIS_SLEWING | AXIS_POSITIVE)},
      {"rate running", false, {{"f2", {"=111\r"}}}, ReadStatus(1), ":f2\r", Ok,
       StatusIs(1, AXIS_RUNNING | AXIS_POSITIVE)},
      {"rate running backwards", false, {{"f1", {"=311\r"}}}, ReadStatus(0), ":f1\r", Ok,
       StatusIs(0, AXIS_RUNNING)},
      {"stopped in high-speed mode", false, {{"f1", {"=501\r"}}}, ReadStatus(0), ":f1\r", Ok,
       StatusIs(0, AXIS_STOPPED | AXIS_POSITIVE | AXIS_HIGH_SPEED)},
      {"not initialised", false, {{"f1", {"=010\r"}}}, ReadStatus(0), ":f1\r", Ok,
       StatusIs(0, AXIS_SLEWING | AXIS_POSITIVE | AXIS_NOT_INITIALISED)},
      {"too few digits", false, {{"f1", {"=1\r"}}}, ReadStatus(0), ":f1\r", InvalidParameter,
       StatusIs(0, AXIS_STOPPED)},
      {"no reply", false, {{"f2", {SILENCE}}}, ReadStatus(1), ":f2\r", NoResponseAxis2},
  });
}

TEST(MotorControllerWire, GotoCommands) {
  const Script atZero = {{"j1", {AT_ZERO}}, {"j2", {AT_ZERO}}};
  auto southern = [](MotorControllerMount& m) { m.southernHemisphere = 1; };
  RunCases({
      {"exactly the low-speed limit", false, atZero, SlewTo(0, 7427.5 * RADIANS_PER_COUNT),
       ":j1\r:G120\r:H1031D00\r:M1AC0D00\r:J1\r", Ok,
       [](MotorControllerMount& m) {
         EXPECT_EQ(m.axisStatus[0], AXIS_SLEWING | AXIS_POSITIVE);
         EXPECT_EQ(m.mountState, STATE_SLEWING);
       }},
      {"one count more", false, atZero, SlewTo(0, 7428.5 * RADIANS_PER_COUNT),
       ":j1\r:G100\r:H1041D00\r:M1AC0D00\r:J1\r", Ok},
      {"negative", false, atZero, SlewTo(1, -100.5 * RADIANS_PER_COUNT),
       ":j2\r:G221\r:H2640000\r:M2AC0D00\r:J2\r", Ok, StatusIs(1, AXIS_SLEWING)},
      {"to where it stands", false, atZero, SlewTo(0, 0.4 * RADIANS_PER_COUNT), ":j1\r", Ok},
      {"position unread", false, {{"j1", {SILENCE}}}, SlewTo(0, 1.0), ":j1\r", NoResponseAxis1},
      {"later commands are not checked", false, {{"j1", {AT_ZERO}}, {"J1", {"!\r"}}},
       SlewTo(0, 7428.5 * RADIANS_PER_COUNT), ":j1\r:G100\r:H1041D00\r:M1AC0D00\r:J1\r", Ok},
      {"equatorial axis 1 below -pi/2 goes a turn higher", true, atZero, SlewTo(1, -2.0),
       ":j2\r:G200\r:H2DA660A\r:M2AC0D00\r:J2\r", Ok},
      {"equatorial axis 0 keeps its target", true, atZero, SlewTo(0, -2.0),
       ":j1\r:G101\r:H1D50A01\r:M1AC0D00\r:J1\r", Ok},
      {"southern site sets the direction's bit 1", true, atZero, SlewTo(0, -2.0),
       ":j1\r:G103\r:H1D50A01\r:M1AC0D00\r:J1\r", Ok, nullptr, southern},
  });
}

TEST(MotorControllerWire, RateCommands) {
  const Script standing = {{"f1", {"=001\r"}}};
  const double clamped = 3.4 * DEG;
  auto oldBoard = [](MotorControllerMount& m) {
    m.boardVersion = 0x010600;
    m.highSpeedRatio[0] = 1;
  };
  auto previousRate = [](MotorControllerMount& m) { m.axisRate[0] = 0.5; };
  RunCases({
      {"sidereal from standing", false, standing, Rate(0, SIDEREAL_RATE),
       ":f1\r:G110\r:I1D41000\r:J1\r", Ok,
       [](MotorControllerMount& m) {
         EXPECT_DOUBLE_EQ(m.axisRate[0], SIDEREAL_RATE);
         EXPECT_EQ(m.axisDirection[0], 1u) << "a later reversal takes up backlash";
       }},
      {"200 x sidereal in high-speed mode", false, standing, Rate(0, 200 * SIDEREAL_RATE),
       ":f1\r:G130\r:I1580100\r:J1\r", Ok},
      {"5 degrees/s backwards runs at 3.4", false, standing, Rate(0, -5 * DEG),
       ":f1\r:G131\r:I1540000\r:J1\r", Ok,
       [clamped](MotorControllerMount& m) {
         EXPECT_NEAR(m.axisRate[0], -clamped, 1e-12);
         EXPECT_EQ(m.axisDirection[0], 0u);
       }},
      {"too slow stops instead", false, standing, Rate(0, 1e-8), ":K1\r", Ok, RateIs(0, 0.5),
       previousRate},
      {"old board: period 8 is sent as 6", false, standing, Rate(0, 0.31415926535897931 / 8.5),
       ":f1\r:G130\r:I1060000\r:J1\r", Ok, nullptr, oldBoard},
      {"same direction at low speed: period only", false, {{"f1", {"=111\r"}}},
       Rate(0, SIDEREAL_RATE), ":f1\r:I1D41000\r:J1\r", Ok},
      {"reversal stops and waits first", false, {{"f1", {"=111\r", "=111\r", "=101\r"}}},
       Rate(0, -SIDEREAL_RATE), ":f1\r:K1\r:f1\r:f1\r:G111\r:I1D41000\r:J1\r", Ok},
      {"status unread", false, {{"f1", {SILENCE}}}, Rate(0, SIDEREAL_RATE), ":f1\r",
       NoResponseAxis1},
  });
}

TEST(MotorControllerWire, StopsAndDeclaredPositions) {
  RunCases({
      {"decelerating stop", false, {}, [](MotorControllerMount& m) { return m.StopAxisMotor(1); },
       ":K2\r", Ok},
      {"instant stop", false, {}, [](MotorControllerMount& m) { return m.StopAxisMotor(0); },
       ":L1\r", Ok, nullptr, [](MotorControllerMount& m) { m.useInstantStop = 1; }},
      {"refused stop", false, {{"K1", {"!\r"}}},
       [](MotorControllerMount& m) { return m.StopAxisMotor(0); }, ":K1\r", InvalidParameter},
      {"declare angle 0", false, {},
       [](MotorControllerMount& m) { return m.SetAxisPosition(0, 0.0); }, ":E1000080\r", Ok},
      {"equatorial axis 0 at 0 is a quarter turn on", true, {},
       [](MotorControllerMount& m) { return m.SetAxisPosition(0, 0.0); }, ":E190D083\r", Ok},
      {"bad axis sends nothing", false, {},
       [](MotorControllerMount& m) { return m.SetAxisPosition(2, 0.0); }, "", InvalidParameter},
  });
}

// Opening: echo test, version, gear and timer constants, positions and the
// axes' start-up, in that order.
const Script EXAMPLE_CONTROLLER = {
    {"e1", {"=021004\r"}}, {"a1", {"=40420F\r"}}, {"a2", {"=40420F\r"}}, {"b1", {"=50C300\r"}},
    {"g1", {"=10\r"}},     {"g2", {"=10\r"}},     {"s1", {"=A86100\r"}}, {"s2", {"=A86100\r"}},
    {"j1", {AT_ZERO}},
    {"j2", {AT_ZERO}},     {"f1", {"=001\r"}},    {"f2", {"=001\r"}}};

// The script with `frame` answered by `replies` instead.
Script With(Script script, const std::string& frame, std::vector<std::string> replies) {
  script.emplace_back(frame, std::move(replies));
  return script;
}

TEST(MotorControllerWire, OpeningSequence) {
  const std::string constants = ":e1\r:a1\r:a2\r:b1\r:g1\r:g2\r";
  const Operation open = [](MotorControllerMount& m) { return m.OpenMount(); };
  const std::vector<WireCase> cases = {
      {"line without echo", false, EXAMPLE_CONTROLLER, open,
       ":" + constants + ":s1\r:s2\r:j1\r:j2\r:F1\r:F2\r", Ok,
       [](MotorControllerMount& m) {
         EXPECT_EQ(m.echoesCommands, 0u);
         EXPECT_EQ(m.boardVersion, 0x021004u);
         EXPECT_EQ(m.boardType, 0x04u);
         EXPECT_DOUBLE_EQ(m.countsPerRadian[1], 159154.94309189534);
         EXPECT_DOUBLE_EQ(m.periodFactor[0], 0.3141592653589793);
         EXPECT_EQ(m.timerFrequency[1], EXAMPLE_TIMER);
         EXPECT_EQ(m.highSpeedRatio[1], 16u);
         EXPECT_EQ(m.wormSteps[0], 0x61A8u);
         EXPECT_EQ(m.lowSpeedGotoLimit[0], 7427);
         EXPECT_EQ(m.brakeSteps[1], BRAKE_STEPS);
         EXPECT_EQ(m.useInstantStop, 0u);
       }},
      {"echoing line skips the worm steps", false, EXAMPLE_CONTROLLER, open,
       ":" + constants + ":j1\r:j2\r:F1\r:F2\r", Ok,
       [](MotorControllerMount& m) { EXPECT_EQ(m.echoesCommands, 1u); }, nullptr, true},
      {"fixed-gear board with instant stops", false,
       With(EXAMPLE_CONTROLLER, "e1", {"=010980\r"}), open,
       ":" + constants + ":j1\r:j2\r:F1\r:F2\r", Ok,
       [](MotorControllerMount& m) {
         EXPECT_DOUBLE_EQ(m.countsPerRadian[0], 1452951 / TWO_PI);
         EXPECT_EQ(m.useInstantStop, 1u);
         EXPECT_EQ(m.echoesCommands, 1u);
         EXPECT_DOUBLE_EQ(m.gotoTolerance, 0.0017453292519943296);
       }},
      {"version answered on the second try", false,
       With(EXAMPLE_CONTROLLER, "e1", {SILENCE, "=021004\r"}), open,
       ":" + std::string(":e1\r") + constants + ":s1\r:s2\r:j1\r:j2\r:F1\r:F2\r", Ok},
      {"silent controller", false, {{"e1", {SILENCE}}}, open, "::e1\r:e1\r", NoResponseAxis1},
      {"garbled version", false, {{"e1", {"=0G\r"}}}, open, "::e1\r:e1\r", InvalidParameter},
      {"undecodable constants keep their values", false,
       With(With(EXAMPLE_CONTROLLER, "a2", {"=??\r"}), "g2", {"=\r"}), open,
       ":" + constants + ":s1\r:s2\r:j1\r:j2\r:F1\r:F2\r", Ok,
       [](MotorControllerMount& m) {
         EXPECT_EQ(m.countsPerRadian[1], 0.0);
         EXPECT_EQ(m.highSpeedRatio[1], 0u);
       }},
      {"failed F ends the Alt/Az opening", false, With(EXAMPLE_CONTROLLER, "F1", {SILENCE}), open,
       ":" + constants + ":s1\r:s2\r:j1\r:j2\r:F1\r", NoResponseAxis1},
      {"equatorial on a southern site", true, EXAMPLE_CONTROLLER, open,
       ":" + constants + ":s1\r:s2\r:j1\r:j2\r:f1\r:f2\r:F1\r:F2\r", Ok,
       [](MotorControllerMount& m) { EXPECT_EQ(m.southernHemisphere, 1u); },
       [](MotorControllerMount& m) { m.SetSite(-30 * DEG, 0.0); }},
      {"equatorial uninitialised: declared at home", true,
       With(With(EXAMPLE_CONTROLLER, "f1", {"=000\r"}), "f2", {"=000\r"}), open,
       ":" + constants + ":s1\r:s2\r:j1\r:j2\r:f1\r:E1000080\r:f2\r:E290D083\r:F1\r:F2\r", Ok},
      {"equatorial ignores a failed F", true, With(EXAMPLE_CONTROLLER, "F1", {SILENCE}), open,
       ":" + constants + ":s1\r:s2\r:j1\r:j2\r:f1\r:f2\r:F1\r:F2\r", Ok,
       [](MotorControllerMount& m) { EXPECT_EQ(m.southernHemisphere, 0u); }},
  };
  RunCases(cases, true);
}

TEST(MotorControllerAltAz, AzimuthTargetsTakeTheShortWayRound) {
  MotorControllerLine line;
  OwnedMount<MotorControllerAltAzMount> mount(new MotorControllerAltAzMount);
  // The sky position whose azimuth-axis angle is -3.0 rad.
  AnglePair axes{-3.0, 0.5};
  AnglePair sky{};
  mount->AxesToSky(&axes, &sky, 1);
  const struct {
    double standing;
    double expected;
  } cases[] = {{3.0, 3.283185307179586}, {0.0, -3.0}, {-3.0, -3.0}};
  for (const auto& c : cases) {
    mount->axisPosition[0] = c.standing;
    AnglePair target = sky;
    AnglePair result{};
    mount->SkyToAxes(&target, &result, 1);
    EXPECT_NEAR(result.lon, c.expected, 1e-9) << "standing at " << c.standing;
  }
}

}  // namespace
}  // namespace scopemount::testing
