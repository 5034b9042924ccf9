// The port over a real pseudo-terminal, with the bench serving the
// demonstration controller at the other end.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "demo_controller.h"
#include "platform/port_names.h"
#include "pty_host.h"
#include "serial/probe_port.h"
#include "support/emulated_port.h"
#include "support/fast_clock.h"
#include "support/selected_port.h"

namespace scopemount::testing {
namespace {

using emulation::DemoController;
using emulation::LineFaults;

constexpr int32_t PTY_PORT = 40;

class SerialPtyTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(host_.Start());
    selected_ = std::make_unique<SelectedPort>(PTY_PORT, host_.Path().c_str());
    ASSERT_TRUE(selected_->bound());
  }

  ScopedFastClock clock_{1.0};
  LibraryClock libraryClock_;
  DemoController model_;
  emulation::EmulatedLine line_{model_, libraryClock_};
  emulation::PtyHost host_{line_};
  std::unique_ptr<SelectedPort> selected_;
};

// Rates set, left-overs of a reply dropped, modem lines that read low, and
// a silent controller that costs the read time-out: the real pace, as a
// dead line must answer well inside it.
TEST_F(SerialPtyTest, ExchangesRunOverAPseudoTerminal) {
  ProbePort port;
  ASSERT_TRUE(port.IsOpen());
  EXPECT_TRUE(port.SetBaudRate(19200));
  EXPECT_TRUE(port.SetBaudRate(4800));

  EXPECT_EQ(port.Ask("POS 0\n", 2), EXCHANGE_OK) << "reads only half of \"0 0\\n\"";
  EXPECT_EQ(port.Ask("GOTO 1 -2000\n", 3), EXCHANGE_OK);
  EXPECT_EQ(port.Reply(3), "OK\n") << "the rest of the last reply was dropped first";
  const std::vector<uint8_t> wire = line_.TakeHostBytes();
  EXPECT_EQ(std::string(wire.begin(), wire.end()), "POS 0\nGOTO 1 -2000\n");

  port.SetRts();
  EXPECT_FALSE(port.IsCtsHigh()) << "no modem lines: CTS reads low";
  port.ClearRts();
  EXPECT_EQ(port.CheckLine(), 0u) << "RTS does not come back";

  line_.SetFaults(LineFaults{.silent = true});
  const uint64_t start = platform::ActiveClock().NowMs();
  EXPECT_EQ(port.Ask("POS 0\n", 10), PROBE_SHORT_REPLY);
  EXPECT_GE(platform::ActiveClock().NowMs() - start, 520u);
  line_.SetFaults(LineFaults{});
  EXPECT_EQ(port.Ask("POS 0\n", 4), EXCHANGE_OK) << "and the line still works";
}

TEST_F(SerialPtyTest, ALineWhoseFarEndWentAwayFailsAtOnce) {
  ProbePort port;
  host_.Stop();
  const uint64_t start = platform::ActiveClock().NowMs();
  EXPECT_EQ(port.Ask("POS 0\n", 4), EXCHANGE_NOT_SENT) << "the write fails";
  EXPECT_EQ(port.Read(port.reply.data(), 4), 0u);
  EXPECT_LT(platform::ActiveClock().NowMs() - start, 500u) << "no waiting on a dead line";
}

// A missing path fails as any port that did not open (the connection tests);
// a path that is no terminal, or a terminal in use, does not open either.
TEST_F(SerialPtyTest, OnlyAFreeTerminalOpens) {
  ProbePort first;
  ProbePort second;
  EXPECT_TRUE(first.IsOpen());
  EXPECT_FALSE(second.IsOpen()) << "in use by the first port";
  ASSERT_TRUE(platform::BindPortPath(PTY_PORT, "/dev/null"));
  ProbePort notATerminal;
  EXPECT_FALSE(notATerminal.IsOpen());
  EXPECT_EQ(notATerminal.Ask("POS 0\n", 4), EXCHANGE_NOT_SENT);
}

}  // namespace
}  // namespace scopemount::testing
