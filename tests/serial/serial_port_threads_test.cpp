// One exchange at a time across threads: a second command waits for the
// line, and gives up with "busy" when the line stays taken for 2 s.
#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "demo_controller.h"
#include "serial/probe_port.h"
#include "support/emulated_port.h"
#include "support/fast_clock.h"

namespace scopemount::testing {
namespace {

using emulation::DemoController;
using emulation::LineFaults;

class SerialPortThreadsTest : public ::testing::Test {
 protected:
  std::string Wire() {
    const std::vector<uint8_t> bytes = emulated_.line().TakeHostBytes();
    return std::string(bytes.begin(), bytes.end());
  }

  ScopedFastClock clock_{20.0};
  EmulatedPort emulated_{std::make_unique<DemoController>()};
  ProbePort port_;
};

TEST_F(SerialPortThreadsTest, ASecondExchangeWaitsUntilTheFirstHasItsReply) {
  emulated_.line().SetFaults(LineFaults{.replyDelayMs = 300});
  uint8_t firstReply[8] = {};
  uint8_t secondReply[8] = {};
  std::atomic<uint32_t> first{99};
  std::thread holder([&] { first = port_.Ask("POS 0\n", 4, firstReply); });
  ASSERT_TRUE(WaitUntil([&] { return emulated_.line().CommandsSeen() == 1; }));
  const uint32_t second = port_.Ask("POS 1\n", 4, secondReply);
  holder.join();
  EXPECT_EQ(first, EXCHANGE_OK);
  EXPECT_EQ(second, EXCHANGE_OK);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(firstReply), 4), "0 0\n");
  EXPECT_EQ(std::string(reinterpret_cast<char*>(secondReply), 4), "1 0\n");
  EXPECT_EQ(Wire(), "POS 0\nPOS 1\n");
  EXPECT_EQ(port_.hooks, "BSAREBSARE") << "the exchanges never interleave";
}

TEST_F(SerialPortThreadsTest, ATakenLineGivesOtherThreadsBusyAndSendsNothing) {
  ASSERT_TRUE(port_.TakeLine());
  std::atomic<uint32_t> result{99};
  std::thread other([&] {
    uint8_t reply[8] = {};
    result = port_.Ask("POS 0\n", 4, reply);
  });
  other.join();
  EXPECT_EQ(result, EXCHANGE_LINE_BUSY) << "after 2 s of waiting";
  EXPECT_EQ(Wire(), "") << "the busy command was never written";
  EXPECT_EQ(emulated_.purges, 0) << "nor was the line touched";
  EXPECT_FALSE(port_.TakeLine(100)) << "not re-entrant";
  port_.ReleaseLine();
  std::thread after([&] {
    uint8_t reply[8] = {};
    result = port_.Ask("POS 0\n", 4, reply);
  });
  after.join();
  EXPECT_EQ(result, EXCHANGE_OK);
}

}  // namespace
}  // namespace scopemount::testing
