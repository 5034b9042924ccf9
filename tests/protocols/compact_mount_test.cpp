// The compact mounts on the wire: every command's exact bytes and every
// reply form (good, short, garbage, none) as the axis operations see them,
// for both sizes. Then the emulated board on its own, for what the sessions
// cannot see: replies to start-up settings and noise, commands in pieces,
// and a GOTO that takes the short way across zero (the long one also
// arrives).
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "celestial/angles.h"
#include "compact_controller.h"
#include "mount/mount.h"
#include "protocols/compact/compact_altaz_mounts.h"
#include "support/scripted_controller.h"

namespace scopemount::testing {
namespace {

using Bytes = std::vector<uint8_t>;
using emulation::CompactController;

// The board answers the reading commands (1 and 21 with a count, 13 with
// the GOTO flag) from one script, else with zeros, and takes every other
// command without a reply.
std::string ReadingOrNot(const std::string& command) {
  const char first = command.empty() ? 0 : command[0];
  return first == 1 || first == 21 || first == 13 ? "read" : "other";
}
std::string Zeros(const std::string& command) {
  if (ReadingOrNot(command) != "read") return SILENCE;
  return std::string(command[0] == 13 ? 1 : 3, '\0');
}
std::string Text(const Bytes& bytes) { return std::string(bytes.begin(), bytes.end()); }

// One mount size and the numbers it puts on the wire.
struct Size {
  const char* name;
  std::function<CompactMount*()> make;
  Bytes revolution;     // counts per revolution
  Bytes startUpStep;    // count of 2 degrees
  uint8_t sidereal;     // run number of the sidereal rate
  Bytes countOfOne;     // count of 1 radian
  Bytes countOfHalf;    // count of 0.5 radian
  Bytes countOfOffset;  // count of 2 pi - 0.5
  Bytes countOfAcross;  // count of 2 pi - (pi - 3)
  double angleOf123;    // angle of the count 0x010203
};

const Size SIZES[] = {
    {"Small", [] { return new CompactAltAzMountSmall; }, {0x0B, 0x16, 0x1F}, {0x00, 0x0F, 0xC4},
     84, {0x01, 0xC3, 0xB3}, {0x00, 0xE1, 0xD9}, {0x0A, 0x34, 0x44}, {0x0A, 0xD6, 0x28},
     0.5712002366284347},
    {"Large", [] { return new CompactAltAzMountLarge; }, {0x10, 0x2A, 0x06}, {0x00, 0x16, 0xFD},
     122, {0x02, 0x92, 0x96}, {0x01, 0x49, 0x4B}, {0x0E, 0xE0, 0xBA}, {0x0F, 0xCC, 0xC5},
     0.3917656496671672},
};

void PrintTo(const Size& size, std::ostream* out) { *out << size.name; }

Bytes Cat(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

class CompactWireTest : public ::testing::TestWithParam<Size> {
 protected:
  CompactWireTest() {
    mount_.reset(GetParam().make());
    line().TakeHostBytes();
  }
  emulation::EmulatedLine& line() { return line_.port.line(); }
  CompactMount& mount() { return *mount_; }
  // The reply to the next readings.
  void NextReading(const Bytes& reply) { line_.controller().Script("read", {Text(reply)}); }
  // Runs `action` and returns what went on the wire.
  Bytes Wire(const std::function<void()>& action) {
    line().TakeHostBytes();
    action();
    return line().TakeHostBytes();
  }

  ScriptedLine line_{50.0, ReadingOrNot, Zeros};
  EmulatedPort& port_ = line_.port;
  OwnedMount<CompactMount> mount_;
};

TEST_P(CompactWireTest, CommandsPutTheirExactBytesOnTheLine) {
  const Size& size = GetParam();
  struct Case {
    std::string what;
    std::function<int32_t(CompactMount&)> action;
    Bytes wire;
  };
  const Case cases[] = {
      {"goto azimuth", [](CompactMount& m) { return m.SlewAxisTo(0, 1.0); },
       Cat({{2}, size.countOfOne})},
      {"goto altitude reads first", [](CompactMount& m) { return m.SlewAxisTo(1, 0.5); },
       Cat({{21, 22}, size.countOfHalf})},
      {"stop a goto", [](CompactMount& m) { return m.StopAxisMotor(1); }, {25}},
      {"run negative sidereal", [](CompactMount& m) { return m.SetAxisRate(1, -SIDEREAL_RATE); },
       {27, 0, 0, size.sidereal}},
      {"zero rate keeps the negative direction",
       [](CompactMount& m) { return m.SetAxisRate(1, 0.0); }, {27, 0, 0, 0}},
      {"stop a running axis", [](CompactMount& m) { return m.StopAxisMotor(1); }, {27, 0, 0, 0}},
      {"run positive sidereal", [](CompactMount& m) { return m.SetAxisRate(0, SIDEREAL_RATE); },
       {6, 0, 0, size.sidereal}},
      {"stop after a positive run", [](CompactMount& m) { return m.StopAxisMotor(0); },
       {6, 0, 0, 0}},
      {"goto resets the direction", [](CompactMount& m) { return m.SlewAxisTo(0, 0.5); },
       Cat({{2}, size.countOfHalf})},
      {"stop azimuth goto", [](CompactMount& m) { return m.StopAxisMotor(0); }, {5}},
      {"load altitude", [](CompactMount& m) { return m.SetAxisPosition(1, 1.0); },
       Cat({{24}, size.countOfOne})},
      {"load negative altitude", [](CompactMount& m) { return m.SetAxisPosition(1, -0.5); },
       Cat({{24}, size.countOfOffset})},
      // Declared 1.0 beyond where the board counts: the offset is 1.0, so a
      // GOTO to 0.5 goes to the count of -0.5.
      {"declare azimuth reads only",
       [&](CompactMount& m) {
         NextReading({1, 2, 3});
         return m.SetAxisPosition(0, 1.0 + size.angleOf123);
       },
       {1}},
      {"goto under a declared azimuth", [](CompactMount& m) { return m.SlewAxisTo(0, 0.5); },
       Cat({{2}, size.countOfOffset})},
      {"declare azimuth -3",
       [&](CompactMount& m) {
         NextReading({0, 0, 0});
         return m.SetAxisPosition(0, -3.0);
       },
       {1}},
      {"goto -pi past the offset's turn", [](CompactMount& m) { return m.SlewAxisTo(0, -PI); },
       Cat({{2}, size.countOfAcross})},
      {"open", [](CompactMount& m) { return m.OpenMount(); },
       Cat({{1, 21, 12}, size.revolution, {32}, size.revolution, {10, 0, 0, 0, 30, 0, 0, 0, 14},
            size.startUpStep})},
  };
  for (const Case& c : cases) {
    int32_t result = -1;
    EXPECT_EQ(Wire([&] { result = c.action(mount()); }), c.wire) << c.what;
    EXPECT_EQ(result, Ok) << c.what;
  }
  EXPECT_EQ(port_.baudRate.load(), 4800u);
  EXPECT_TRUE(line().IsHostRtsHigh()) << "RTS stays high from the first command on";
}

TEST_P(CompactWireTest, EveryReplyFormMapsToAResult) {
  struct Case {
    std::string what;
    emulation::LineFaults faults;
    Bytes reply;
    uint32_t axis;
    int32_t result;
    double angle;  // NAN: unchanged
  };
  const double angle = GetParam().angleOf123;
  const double radiansPerCount = mount().radiansPerCount[0];
  const Case cases[] = {
      {"good azimuth", {}, {1, 2, 3}, 0, Ok, angle},
      {"good altitude", {}, {1, 2, 3}, 1, Ok, angle},
      {"short reply, missing bytes zero", {.truncateTo = 1}, {0x12, 0x34, 0x56}, 0, Ok,
       NormalizeAngle(0x120000 * radiansPerCount)},
      {"garbage taken as a reply", {.garbage = {0xA5, 0x5A, 0xFF}}, {1, 2, 3}, 1, Ok,
       NormalizeAngle(0xA55AFF * radiansPerCount)},
      {"no reply on azimuth", {.silent = true}, {1, 2, 3}, 0, NoResponseAxis1, NAN},
      {"no reply on altitude", {.silent = true}, {1, 2, 3}, 1, NoResponseAxis2, NAN},
  };
  for (const Case& c : cases) {
    mount().axisPosition[c.axis] = -1.0;
    line().SetFaults(c.faults);
    NextReading(c.reply);
    EXPECT_EQ(mount().ReadAxisPosition(c.axis), c.result) << c.what;
    const double expected = std::isnan(c.angle) ? -1.0 : c.angle;
    EXPECT_NEAR(mount().axisPosition[c.axis], expected, 1e-12) << c.what;
    line().SetFaults({});
  }
  // A silent board fails every operation by axis, and opening.
  line().SetFaults({.silent = true});
  EXPECT_EQ(mount().OpenMount(), NoResponseAxis1);
  EXPECT_EQ(mount().SetAxisPosition(0, 1.0), NoResponseAxis1);
  mount().SlewAxisTo(0, 1.0);
  EXPECT_EQ(mount().ReadAxisStatus(0), NoResponseAxis1);
  // Commands without a reply are never acknowledged, so they still succeed.
  EXPECT_EQ(mount().SetAxisRate(1, 0.1), Ok);
  port_.stallWrites = true;
  EXPECT_EQ(mount().SetAxisRate(1, 0.1), NoResponseAxis2) << "a write that never leaves";
  port_.stallWrites = false;
  line().SetFaults({});
  NextReading({0, 0, 0});
  EXPECT_EQ(mount().ReadAxisPosition(0), Ok);
  EXPECT_EQ(mount().ReadAxisPosition(2), InvalidParameter);
  EXPECT_EQ(mount().SlewAxisTo(2, 0.0), InvalidParameter);
  EXPECT_EQ(Wire([&] { mount().SetAxisRate(5, 1.0); }), Bytes{}) << "a bad axis sends nothing";
}

TEST_P(CompactWireTest, GotoEndsByTheBoardOnAzimuthAndByStandstillOnAltitude) {
  ASSERT_EQ(mount().SlewAxisTo(0, 1.0), Ok);
  EXPECT_EQ(mount().axisStatus[0].load(), 20u);
  EXPECT_DOUBLE_EQ(mount().axisRate[0], 0.13962634015954636);
  NextReading({0x00});
  EXPECT_EQ(Wire([&] { mount().ReadAxisStatus(0); }), Bytes{13});
  EXPECT_EQ(mount().axisStatus[0].load(), 20u) << "still running";
  NextReading({0xFF});
  EXPECT_EQ(Wire([&] { mount().ReadAxisStatus(0); }), Bytes{13});
  EXPECT_EQ(mount().axisStatus[0].load(), 16u) << "only the GOTO flag is cleared";
  EXPECT_EQ(Wire([&] { mount().ReadAxisStatus(0); }), Bytes{}) << "no GOTO, no question";

  NextReading({0, 1, 0});
  ASSERT_EQ(mount().SlewAxisTo(1, 0.5), Ok);
  EXPECT_EQ(Wire([&] { mount().ReadAxisStatus(1); }), Bytes{}) << "too soon after the GOTO";
  const std::vector<Bytes> readings = {{0, 2, 0}, {0, 2, 0}};
  const uint32_t expected[] = {20u, 16u};
  for (size_t i = 0; i < readings.size(); ++i) {
    const uint32_t since = mount().lastAltitudeCheckTick;
    ASSERT_TRUE(WaitUntil([&] { return platform::TickCount() - since > 1000; }));
    NextReading(readings[i]);
    EXPECT_EQ(Wire([&] { mount().ReadAxisStatus(1); }), Bytes{21}) << "check " << i;
    EXPECT_EQ(mount().axisStatus[1].load(), expected[i]) << "check " << i;
  }
  EXPECT_EQ(Wire([&] { mount().ReadAxisStatus(1); }), Bytes{});
}

INSTANTIATE_TEST_SUITE_P(Sizes, CompactWireTest, ::testing::ValuesIn(SIZES),
                         [](const auto& info) { return std::string(info.param.name); });

// --- The emulated board ------------------------------------------------

class Capture final : public emulation::ReplySink {
 public:
  void Reply(const uint8_t* bytes, size_t count) override {
    replies.emplace_back(bytes, bytes + count);
  }
  std::vector<Bytes> replies;
};

// Sends `command` at `nowMs` and returns the board's replies to it.
std::vector<Bytes> Send(CompactController& board, const Bytes& command, uint64_t nowMs) {
  Capture sink;
  board.Receive(command.data(), command.size(), nowMs, sink);
  return sink.replies;
}

TEST(CompactController, RepliesFramingAndTheShortWayRound) {
  CompactController board;
  struct Step {
    const char* what;
    uint64_t atMs;
    Bytes command;
    std::vector<Bytes> replies;
  };
  const Step steps[] = {
      {"start-up settings take no reply", 0, {10, 0, 0, 0, 30, 0, 0, 0, 14, 0, 0x0F, 0xC4},
       {{}, {}, {}}},
      {"noise is dropped", 0, {0, 99, 255, 1}, {{0, 0, 0}}},
      // 100 counts below zero of 726559: the short way is 100 counts back.
      {"GOTO azimuth across zero", 0, {2, 0x0B, 0x15, 0xBB}, {{}}},
      {"arrived the short way", 1000, {1}, {{0x0B, 0x15, 0xBB}}},
      {"GOTO ended", 1000, {13}, {{0xFF}}},
      {"half a command waits", 1000, {24, 0x01}, {}},
      {"the rest completes it", 1000, {0x02, 0x03}, {{}}},
      {"altitude loaded", 1000, {21}, {{0x01, 0x02, 0x03}}},
  };
  for (const Step& step : steps) {
    EXPECT_EQ(Send(board, step.command, step.atMs), step.replies) << step.what;
  }
}

}  // namespace
}  // namespace scopemount::testing
