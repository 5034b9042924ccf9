// The serial port's own sequence, time-outs and modem lines, with an
// emulated controller behind the real port code on the fast test clock;
// and the bench's own demonstration controller and line faults.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>

#include "demo_controller.h"
#include "serial/probe_port.h"
#include "support/emulated_port.h"
#include "support/fast_clock.h"
#include "support/selected_port.h"

namespace scopemount::testing {
namespace {

using emulation::DemoController;
using emulation::LineFaults;
using emulation::LineWiring;

std::string Text(const std::vector<uint8_t>& bytes) { return std::string(bytes.begin(), bytes.end()); }

class SerialPortTest : public ::testing::Test {
 protected:
  uint64_t Now() const { return platform::ActiveClock().NowMs(); }

  ScopedFastClock clock_{10.0};
  EmulatedPort emulated_{std::make_unique<DemoController>()};
};

TEST_F(SerialPortTest, OpensTheSelectedPortOnceWithTheLineSettingsOfAFreshPort) {
  SelectedPort selected(7, "/dev/emulated-seven");
  ASSERT_TRUE(selected.bound());
  ProbePort port;
  EXPECT_TRUE(port.IsOpen());
  EXPECT_EQ(emulated_.LastOpenedPath(), "/dev/emulated-seven");
  EXPECT_TRUE(port.SetBaudRate(4800));
  EXPECT_EQ(emulated_.baudRate, 4800u);
  SetPortNumber(3);  // read once: a later choice changes nothing for this port
  EXPECT_EQ(port.Ask("POS 0\n", 4), EXCHANGE_OK);
  EXPECT_EQ(emulated_.opens, 1);
}

TEST_F(SerialPortTest, ExchangeRunsTheHooksInOrderAndPassesTheReplyBack) {
  ProbePort port;
  EXPECT_EQ(port.Ask("POS 0\n", 4), EXCHANGE_OK);
  EXPECT_EQ(Text(emulated_.line().TakeHostBytes()), "POS 0\n") << "exact bytes on the wire";
  EXPECT_EQ(port.Reply(4), "0 0\n");
  EXPECT_EQ(port.hooks, "BSARE");
  EXPECT_EQ(port.lastSendLength, 6u);
  EXPECT_EQ(emulated_.purges, 1) << "one purge before the command";

  port.hooks.clear();
  port.refuseAfterSend = true;
  EXPECT_EQ(port.Ask("STAT 1\n", 4), EXCHANGE_NOT_SENT) << "AfterSend refused: no reply read";
  EXPECT_EQ(port.hooks, "BSAE");
}

// What a late, missing or stuck exchange costs on the test clock: at least
// its time-out (the clock cannot run slow), and not seconds more.
TEST_F(SerialPortTest, TimeOutsOfAMissingReplyALateOneAndAWriteThatCannotLeave) {
  const struct {
    const char* what;
    LineFaults faults;
    bool stallWrites;
    uint32_t asked;
    uint32_t result;
    uint64_t leastMs;
    const char* hooks;
  } cases[] = {
      {"missing: 500 ms + 2 ms a byte", {.silent = true}, false, 100, PROBE_SHORT_REPLY, 700,
       "BSARE"},
      {"late within the time-out", {.replyDelayMs = 300}, false, 4, EXCHANGE_OK, 300, "BSARE"},
      {"stuck write: 30 ms + 2 ms a byte, no read", {}, true, 4, EXCHANGE_NOT_SENT, 42, "BSE"},
  };
  for (const auto& c : cases) {
    ProbePort port;
    emulated_.line().SetFaults(c.faults);
    emulated_.stallWrites = c.stallWrites;
    const uint64_t start = Now();
    EXPECT_EQ(port.Ask("POS 0\n", c.asked), c.result) << c.what;
    const uint64_t elapsed = Now() - start;
    EXPECT_GE(elapsed, c.leastMs) << c.what;
    EXPECT_LT(elapsed, c.leastMs + 2000) << c.what;
    EXPECT_EQ(port.hooks, c.hooks) << c.what;
    EXPECT_EQ(port.Reply(4), c.result == EXCHANGE_OK ? "0 0\n" : std::string(4, '\0')) << c.what;

    emulated_.line().SetFaults({});
    emulated_.stallWrites = false;
    const uint64_t again = Now();
    EXPECT_EQ(port.Ask("POS 0\n", 4), EXCHANGE_OK) << c.what << ": the line is free again";
    EXPECT_LT(Now() - again, EXCHANGE_WAIT_MS) << c.what;
  }
}

TEST_F(SerialPortTest, CheckLineTellsWhetherTheCableLoopsRtsToCts) {
  ProbePort port;
  emulated_.line().SetWiring(LineWiring{.rtsLoopsToCts = true});
  EXPECT_EQ(port.CheckLine(), 1u);
  EXPECT_FALSE(emulated_.line().IsHostRtsHigh()) << "RTS dropped again after the probe";

  emulated_.line().SetWiring(LineWiring{.rtsLoopsToCts = false});
  EXPECT_EQ(port.CheckLine(), 0u);

  emulated_.line().SetWiring(LineWiring{.rtsLoopsToCts = true, .ctsHeldHigh = true});
  const uint64_t start = Now();
  EXPECT_EQ(port.CheckLine(), 0u) << "CTS held by someone else the whole wait";
  EXPECT_GE(Now() - start, 400u) << "40 waits of 10 ms";
  EXPECT_FALSE(emulated_.line().IsHostRtsHigh()) << "RTS never raised";
}

// The bench's demonstration controller (also served by the command-line
// program) answers its commands, and a GOTO arrives on the clock; its line
// can fall quiet after N commands, the controller still taking them.
TEST_F(SerialPortTest, DemonstrationControllerAndALineThatFallsQuiet) {
  ProbePort port;
  const struct {
    const char* command;
    const char* reply;
  } exchanges[] = {
      {"GOTO 0 8000\n", "OK\n"},    {"STAT 0\n", "0 12\n"}, {"RATE 1 -500\n", "OK\n"},
      {"STAT 1\n", "1 2\n"},        {"STOP 1\n", "OK\n"},   {"SET 1 42\n", "OK\n"},
      {"POS 1\n", "1 42\n"},        {"WHAT 1\n", "ERR\n"},  {"GOTO 1 nan\n", "ERR\n"},
  };
  for (const auto& e : exchanges) {
    EXPECT_EQ(port.AskText(e.command, static_cast<uint32_t>(std::strlen(e.reply))), e.reply)
        << e.command;
  }
  ASSERT_TRUE(WaitUntil([&] { return port.AskText("STAT 0\n", 4) == "0 1\n"; }))
      << "stopped at the target";
  EXPECT_EQ(port.AskText("POS 0\n", 7), "0 8000\n");

  emulation::EmulatedLine& line = emulated_.line();
  const size_t seen = line.CommandsSeen();
  line.SetFaults(LineFaults{.stopAfterCommands = seen + 1});
  EXPECT_EQ(port.AskText("POS 1\n", 5), "1 42\n");
  EXPECT_EQ(port.AskText("POS 1\n", 5), "") << "quiet after N commands";
  EXPECT_EQ(line.CommandsSeen(), seen + 2) << "the controller still takes them";
}

// The interval rule runs on a clock four times slower than the wall: its
// 30 ms (120 ms real) must stand clear of scheduling noise on a busy machine.
class SerialPortIntervalTest : public SerialPortTest {
 protected:
  ScopedFastClock slow_{0.25};
};

TEST_F(SerialPortIntervalTest, AReadEndsWhenThirtyMsPassBetweenTwoBytes) {
  ProbePort port;
  emulated_.line().SetFaults(LineFaults{.byteGapMs = 10});
  EXPECT_EQ(port.Ask("POS 0\n", 4), EXCHANGE_OK) << "bytes 10 ms apart are one reply";
  EXPECT_EQ(port.Reply(4), "0 0\n");

  emulated_.line().SetFaults(LineFaults{.byteGapMs = 80});
  EXPECT_EQ(port.Ask("POS 0\n", 4), PROBE_SHORT_REPLY);
  EXPECT_EQ(port.lastReadCount, 1u) << "the read stops 30 ms after the first byte";
}

}  // namespace
}  // namespace scopemount::testing
