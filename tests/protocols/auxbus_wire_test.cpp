// The AUX-bus layer on the wire: exact bytes of every command, and every
// form of reply (good, noisy, bad checksum, wrong sender, short, none),
// against a scripted bus that echoes the host's bytes like the real one.
// The replies are written out by hand here, never produced by the codec.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <functional>
#include <string>
#include <vector>

#include "protocols/auxbus/aux_mounts.h"
#include "support/angles.h"
#include "support/scripted_controller.h"

namespace scopemount {
namespace {

using testing::SILENCE;

constexpr double ONE_COUNT = 3.7450702829239286e-07;

// "3B 03" is the two bytes 0x3B 0x03, and back.
std::string Hex(const std::string& text) {
  std::string bytes;
  for (size_t i = 0; i + 2 <= text.size(); i += 3) {
    bytes += static_cast<char>(std::stoul(text.substr(i, 2), nullptr, 16));
  }
  return bytes;
}

std::string ToHex(const std::string& bytes) {
  std::string text;
  char byte[4];
  for (const char b : bytes) {
    std::snprintf(byte, sizeof byte, "%s%02X", text.empty() ? "" : " ", static_cast<uint8_t>(b));
    text += byte;
  }
  return text;
}

// Any controller's bare acknowledgement; the layer does not look inside.
const std::string ACK = "3B 03 10 32 00 BB";
// Position replies of the controller at 0x10.
const std::string AT_ZERO = "3B 06 10 32 01 00 00 00 B7";
const std::string AT_PLUS_90 = "3B 06 10 32 01 40 00 00 77";

// A mount on a scripted bus that answers each packet in turn with the
// scripted replies, then with acknowledgements; a missing reply's
// time-outs pass on a fast clock.
struct Bench : testing::ScriptedLine {
  OwnedMount<AuxBusMount> mount;

  explicit Bench(bool equatorial, emulation::LineWiring wiring = {.echo = true,
                                                                  .rtsLoopsToCts = true})
      : ScriptedLine(
            20.0, [](const std::string&) { return std::string(); },
            [](const std::string&) { return Hex(ACK); }) {
    port.line().SetWiring(wiring);
    if (equatorial) {
      mount.reset(new AuxEquatorialMount());
    } else {
      mount.reset(new AuxAltAzMount());
    }
  }
  void Script(const std::vector<std::string>& replies) {
    std::vector<std::string> packets;
    for (const std::string& reply : replies) packets.push_back(Hex(reply));
    packets.push_back(Hex(ACK));
    controller().Script("", packets);
  }
  std::string Sent() { return ToHex(Written()); }
};

using Action = std::function<int32_t(AuxBusMount&)>;

// --- Commands, byte for byte -------------------------------------------

struct CommandCase {
  const char* what;
  bool equatorial;
  Action setup;  // its bytes are not checked
  std::vector<std::string> replies;
  Action act;
  std::string wire;
};

const Action NOTHING = [](AuxBusMount&) { return int32_t{Ok}; };

TEST(AuxBusWire, CommandsGoOutByteForByte) {
  const double threeDegrees = 1.5 * AUX_APPROACH_MARGIN;
  // Versions, plain approach, both direction settings cleared, positions.
  const std::string opening =
      "3B 03 32 10 FE BD 3B 03 32 11 FE BC 3B 04 32 10 FD 00 BD 3B 04 32 11 FD 00 BC "
      "3B 04 32 10 10 00 AA 3B 04 32 10 11 00 A9 3B 04 32 11 10 00 A9 3B 04 32 11 11 00 A8 "
      "3B 03 32 10 01 BA 3B 03 32 11 01 B9";
  const CommandCase cases[] = {
      {"sidereal rate", false, NOTHING, {},
       [](AuxBusMount& m) { return m.SetAxisRate(0, 7.292115845221407e-05); },
       "3B 06 32 10 06 00 3C 00 76"},
      {"backlash take-up: 32 sidereal", false, NOTHING, {},
       [](AuxBusMount& m) { return m.SetAxisRate(0, -m.backlashRate); },
       "3B 06 32 10 07 07 85 00 25"},
      {"a zero rate counts as positive, even after a negative run", false,
       [](AuxBusMount& m) { return m.SetAxisRate(0, -0.001); }, {},
       [](AuxBusMount& m) { return m.SetAxisRate(0, 0.0); }, "3B 06 32 10 06 00 00 00 B2"},
      {"stop after a negative run", false,
       [](AuxBusMount& m) { return m.SetAxisRate(0, -0.001); }, {},
       [](AuxBusMount& m) { return m.StopAxisMotor(0); }, "3B 06 32 10 07 00 00 00 B1"},
      {"stop after a positive run", false,
       [](AuxBusMount& m) { return m.SetAxisRate(0, 0.001); }, {},
       [](AuxBusMount& m) { return m.StopAxisMotor(0); }, "3B 06 32 10 06 00 00 00 B2"},
      {"rate under a quarter arcsecond is a stop the last way", false,
       [](AuxBusMount& m) { return m.SetAxisRate(0, -0.001); }, {},
       [](AuxBusMount& m) { return m.SetAxisRateRaw(0, 0.2 * ARCSEC); },
       "3B 06 32 10 07 00 00 00 B1"},
      {"fast slew to +90", false, NOTHING, {AT_ZERO},
       [](AuxBusMount& m) { return m.SlewAxisTo(0, HALF_PI); },
       "3B 03 32 10 01 BA 3B 04 32 10 FD 00 BD 3B 06 32 10 02 40 00 00 76"},
      {"slew back to 0 approaches from above", false, NOTHING, {AT_PLUS_90},
       [](AuxBusMount& m) { return m.SlewAxisTo(0, 0.0); },
       "3B 03 32 10 01 BA 3B 04 32 10 FD 01 BC 3B 06 32 10 02 00 00 00 B6"},
      {"slew of exactly 1.5 margins is slow", false, NOTHING, {AT_ZERO},
       [threeDegrees](AuxBusMount& m) { return m.SlewAxisTo(0, threeDegrees); },
       "3B 03 32 10 01 BA 3B 04 32 10 FD 00 BD 3B 06 32 10 17 02 22 22 5B"},
      {"slew just over 1.5 margins is fast", false, NOTHING, {AT_ZERO},
       [threeDegrees](AuxBusMount& m) { return m.SlewAxisTo(0, threeDegrees * (1 + 1e-9)); },
       "3B 03 32 10 01 BA 3B 04 32 10 FD 00 BD 3B 06 32 10 02 02 22 22 70"},
      {"status of a standing axis sends nothing", false, NOTHING, {},
       [](AuxBusMount& m) { return m.ReadAxisStatus(0); }, ""},
      {"status of a slewing axis asks", false,
       [](AuxBusMount& m) { return m.SlewAxisTo(0, HALF_PI); }, {AT_ZERO},
       [](AuxBusMount& m) { return m.ReadAxisStatus(0); }, "3B 03 32 10 13 A8"},
      {"declare axis 1 at -90", false, NOTHING, {},
       [](AuxBusMount& m) { return m.SetAxisPosition(1, -HALF_PI); },
       "3B 06 32 11 04 C0 00 00 F3"},
      {"equatorial slew of axis 0 to 0 sends pi", true, NOTHING, {AT_ZERO},
       [](AuxBusMount& m) { return m.SlewAxisTo(0, 0.0); },
       "3B 03 32 10 01 BA 3B 04 32 10 FD 00 BD 3B 06 32 10 02 80 00 00 36"},
      {"equatorial axis 0 declared at -90 sends +90", true, NOTHING, {},
       [](AuxBusMount& m) { return m.SetAxisPosition(0, -HALF_PI); },
       "3B 06 32 10 04 40 00 00 74"},
      {"Alt/Az opening", false, NOTHING, {},
       [](AuxBusMount& m) { return m.OpenMount(); },
       opening + " 3B 06 32 10 06 00 00 00 B2 3B 06 32 11 06 00 00 00 B1 " +
           "3B 03 32 10 01 BA 3B 03 32 11 01 B9"},
      {"equatorial opening leaves the motors alone", true, NOTHING, {},
       [](AuxBusMount& m) { return m.OpenMount(); }, opening},
  };
  for (const CommandCase& c : cases) {
    SCOPED_TRACE(c.what);
    Bench bench(c.equatorial);
    ASSERT_EQ(c.setup(*bench.mount), Ok);
    bench.Sent();
    bench.Script(c.replies);
    EXPECT_EQ(c.act(*bench.mount), Ok);
    EXPECT_EQ(bench.Sent(), c.wire);
    EXPECT_FALSE(bench.port.line().IsHostRtsHigh()) << "RTS is dropped after every exchange";
  }
}

// --- Replies ------------------------------------------------------------

struct ReplyCase {
  const char* what;
  bool equatorial;
  uint32_t axis;
  std::string reply;
  int32_t result;
  double angle;  // the axis angle read, when the result is Ok
};

TEST(AuxBusWire, EveryFormOfReplyIsReadOrRefused) {
  const ReplyCase cases[] = {
      {"+90", false, 0, AT_PLUS_90, Ok, HALF_PI},
      {"80 00 00 is -pi", false, 0, "3B 06 10 32 01 80 00 00 37", Ok, -PI},
      {"7F FF FF is just under pi", false, 0, "3B 06 10 32 01 7F FF FF 3A", Ok, PI - ONE_COUNT},
      {"bad checksum is accepted", false, 0, "3B 06 10 32 01 40 00 00 00", Ok, HALF_PI},
      {"wrong sender is accepted", false, 0, "3B 06 11 32 01 40 00 00 76", Ok, HALF_PI},
      {"noise before the start", false, 0, "00 FF 12 80 " + AT_PLUS_90, Ok, HALF_PI},
      {"zero bytes before the length", false, 0, "3B 00 00 06 10 32 01 40 00 00 77", Ok,
       HALF_PI},
      {"longest reply", false, 0,
       "3B 1D 10 32 01 40 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
       "00 00",
       Ok, HALF_PI},
      {"length above 29", false, 0,
       "3B 1E 10 32 01 40 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 "
       "00 00 00",
       NoResponseAxis1, 0.0},
      {"cut short", false, 0, "3B 06 10 32 01 40 00", NoResponseAxis1, 0.0},
      {"noise only", false, 1, "01 02 03", NoResponseAxis2, 0.0},
      {"equatorial axis 0 at 00 00 00 is -pi", true, 0, AT_ZERO, Ok, -PI},
      {"equatorial axis 0 at +90 is home, -pi/2", true, 0, AT_PLUS_90, Ok, -HALF_PI},
      {"equatorial axis 1 at -90 stays", true, 1, "3B 06 11 32 01 C0 00 00 F6", Ok, -HALF_PI},
      {"equatorial axis 1 below -90 is lifted a turn", true, 1, "3B 06 11 32 01 BF FF FF F9", Ok,
       -HALF_PI - ONE_COUNT + TWO_PI},
  };
  for (const ReplyCase& c : cases) {
    SCOPED_TRACE(c.what);
    Bench bench(c.equatorial);
    bench.mount->axisPosition[c.axis] = 0.0;
    bench.Script({c.reply});
    EXPECT_EQ(bench.mount->ReadAxisPosition(c.axis), c.result);
    EXPECT_NEAR(bench.mount->axisPosition[c.axis], c.angle, 1e-12)
        << "a failed read keeps the old position";
    // The line is clean for the next command whatever came before.
    EXPECT_EQ(bench.mount->ReadAxisPosition(c.axis), Ok);
  }
}

// --- Opening and the handshake -------------------------------------------

struct OpenCase {
  const char* what;
  std::vector<std::string> replies;
  int32_t result;
};

TEST(AuxBusWire, OpeningStopsAtTheFirstControllerThatDoesNotAnswer) {
  const std::string version0 = "3B 05 10 32 FE 05 09 AD";
  const std::string version1 = "3B 05 11 32 FE 07 0B A6";
  const OpenCase cases[] = {
      {"both answer", {version0, version1}, Ok},
      {"axis 0 missing", {SILENCE}, NoResponseAxis1},
      {"axis 1 missing", {version0, SILENCE}, NoResponseAxis2},
      {"axis 1 misses a setting", {version0, version1, ACK, SILENCE}, NoResponseAxis2},
  };
  for (const OpenCase& c : cases) {
    SCOPED_TRACE(c.what);
    Bench bench(false);
    bench.Script(c.replies);
    EXPECT_EQ(bench.mount->OpenMount(), c.result);
    if (c.result == Ok) {
      EXPECT_EQ(bench.mount->boardVersion, 7u * 65536u + 11u * 256u) << "the second controller's";
      EXPECT_EQ(bench.mount->axisStatus[0], AXIS_STOPPED);
      EXPECT_EQ(bench.mount->axisStatus[1], AXIS_STOPPED);
    }
  }
}

// Whether the cable loops RTS back is the serial port's test; the bus
// drops its handshake when it does not.
TEST(AuxBusWire, HandshakeFollowsTheCable) {
  Bench unlooped(true, {.echo = true});
  EXPECT_EQ(unlooped.mount->OpenMount(), Ok);
  EXPECT_EQ(unlooped.mount->noHandshake, 1u);
  // A bus held by someone else after opening delays a command, never loses it.
  Bench bench(false);
  ASSERT_EQ(bench.mount->OpenMount(), Ok);
  ASSERT_EQ(bench.mount->noHandshake, 0u);
  bench.Sent();
  bench.port.line().SetWiring({.echo = true, .rtsLoopsToCts = true, .ctsHeldHigh = true});
  EXPECT_EQ(bench.mount->ReadAxisPosition(1), Ok);
  EXPECT_EQ(bench.Sent(), "3B 03 32 11 01 B9");
}

TEST(AuxBusWire, BadArgumentsTouchNothing) {
  Bench bench(false);
  AuxBusMount& m = *bench.mount;
  EXPECT_EQ(m.ReadAxisPosition(2), InvalidParameter);
  EXPECT_EQ(m.SetAxisRate(5, 0.1), InvalidParameter);
  EXPECT_EQ(m.SetAxisRate(0, NAN), InvalidParameter);
  EXPECT_EQ(m.SlewAxisTo(0, INFINITY), InvalidParameter);
  EXPECT_EQ(m.SetAxisPosition(1, NAN), InvalidParameter);
  EXPECT_EQ(m.StopAxisMotor(7), InvalidParameter);
  EXPECT_EQ(bench.Sent(), "");
  // Rates beyond the field run at its fastest rather than wrapping slow.
  EXPECT_EQ(m.SetAxisRate(0, 1.0), Ok);
  EXPECT_EQ(bench.Sent(), "3B 06 32 10 06 FF FF 00 B4");
}

}  // namespace
}  // namespace scopemount
