// The emulation bench itself: the demonstration controller's motion on the
// clock, and the faults no protocol test reads.
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "demo_controller.h"
#include "platform/clock.h"
#include "serial/probe_port.h"
#include "support/emulated_port.h"
#include "support/fast_clock.h"

namespace scopemount::testing {
namespace {

using emulation::DemoController;
using emulation::LineFaults;
using emulation::LineWiring;

class EmulationBenchTest : public ::testing::Test {
 protected:
  // The reply to `command`, as far as it came within the port's time-outs.
  std::string Ask(const std::string& command, uint32_t replyLength) {
    port_.Ask(command, replyLength);
    return port_.Reply(port_.lastReadCount);
  }
  emulation::EmulatedLine& line() { return emulated_.line(); }

  ScopedFastClock clock_{20.0};
  EmulatedPort emulated_{std::make_unique<DemoController>()};
  ProbePort port_;
};

TEST_F(EmulationBenchTest, DemonstrationAxesMoveWithRatesAndGotosOnTheClock) {
  // 8000 millidegrees at 4000 a second.
  const uint64_t start = platform::ActiveClock().NowMs();
  EXPECT_EQ(Ask("GOTO 0 8000\n", 3), "OK\n");
  EXPECT_EQ(Ask("STAT 0\n", 5), "0 12\n") << "slewing, positive";
  ASSERT_TRUE(WaitUntil([&] { return Ask("STAT 0\n", 4) == "0 1\n"; })) << "stopped at the target";
  EXPECT_GE(platform::ActiveClock().NowMs() - start, 1990u);
  EXPECT_EQ(Ask("POS 0\n", 7), "0 8000\n");

  const uint64_t running = platform::ActiveClock().NowMs();
  EXPECT_EQ(Ask("RATE 1 -500\n", 3), "OK\n");
  EXPECT_EQ(Ask("STAT 1\n", 4), "1 2\n") << "running, negative";
  ASSERT_TRUE(WaitUntil([&] { return std::stol(Ask("POS 1\n", 7).substr(2)) <= -1000; }));
  // 500 millidegrees a second, less the position's rounding.
  EXPECT_GE(platform::ActiveClock().NowMs() - running, 1990u);
  EXPECT_EQ(Ask("STOP 1\n", 3), "OK\n");
  EXPECT_EQ(Ask("SET 1 42\n", 3), "OK\n");
  EXPECT_EQ(Ask("POS 1\n", 5), "1 42\n");
  EXPECT_EQ(Ask("WHAT 1\n", 4), "ERR\n");
  EXPECT_EQ(Ask("GOTO 1 nan\n", 4), "ERR\n");
}

// Garbage, short, silent and late replies are checked where a protocol
// reads them; these faults only show here.
TEST_F(EmulationBenchTest, AControllerFallsQuietAfterNCommandsAndTheWireCanEcho) {
  const size_t seen = line().CommandsSeen();
  line().SetFaults(LineFaults{.stopAfterCommands = seen + 2});
  EXPECT_EQ(Ask("POS 0\n", 4), "0 0\n");
  EXPECT_EQ(Ask("POS 1\n", 4), "1 0\n");
  EXPECT_EQ(Ask("POS 0\n", 4), "") << "quiet after N commands";
  EXPECT_EQ(line().CommandsSeen(), seen + 3) << "the controller still takes them";

  line().SetWiring(LineWiring{.echo = true});
  EXPECT_EQ(Ask("POS 0\n", 10), "POS 0\n") << "the wire echoes even when the controller is quiet";
  line().SetFaults({});
  EXPECT_EQ(Ask("POS 0\n", 10), "POS 0\n0 0\n");
}

}  // namespace
}  // namespace scopemount::testing
