// `scopemount emulate`: the served controller answers the library's port on
// the printed path, and the program ends on end of input or on Ctrl-C.
#include <gtest/gtest.h>

#include <string>

#include "serial/probe_port.h"
#include "support/process.h"
#include "support/selected_port.h"

namespace scopemount::testing {
namespace {

constexpr int32_t EMULATOR_PORT = 43;

// The program serving `protocol`; it prints the device path on its first line.
struct ServedEmulator : ChildProcess {
  explicit ServedEmulator(const char* protocol)
      : ChildProcess(SCOPEMOUNT_CLI_PATH, {"emulate", protocol}) {}
};

TEST(EmulateCommand, ServesTheControllerOnThePrintedPathUntilInputEnds) {
  ServedEmulator emulator("demo");
  const std::string path = emulator.ReadLine();
  ASSERT_EQ(path.rfind("/dev/pts/", 0), 0u) << path;
  {
    const SelectedPort selected(EMULATOR_PORT, path.c_str());
    ASSERT_TRUE(selected.bound());
    ProbePort port;
    ASSERT_TRUE(port.IsOpen());
    EXPECT_EQ(port.Ask("POS 1\n", 4), EXCHANGE_OK);
    EXPECT_EQ(port.Reply(4), "1 0\n");
  }
  emulator.CloseInput();
  EXPECT_EQ(emulator.Wait(), 0);
}

TEST(EmulateCommand, EndsOnInterrupt) {
  ServedEmulator emulator("demo");
  ASSERT_FALSE(emulator.ReadLine().empty());
  emulator.Interrupt();
  EXPECT_EQ(emulator.Wait(), 0);
}

// Two programs side by side, as the README shows them: a compact mount's
// board served on a pseudo-terminal, and a GOTO to a star through it (low
// in the sky at this site, so the slew is short).
TEST(EmulateCommand, ACompactMountGoesToAStarOnTheServedBoard) {
  ServedEmulator emulator("compact");
  const std::string path = emulator.ReadLine();
  ASSERT_EQ(path.rfind("/dev/pts/", 0), 0u) << path;
  const ProcessResult r =
      RunProcess(SCOPEMOUNT_CLI_PATH, {"goto", "--model", "8", "--port", path, "--star", "Polaris",
                                       "--lat", "5", "--lon", "0"});
  EXPECT_EQ(r.exitStatus, 0) << r.out << r.err;
  EXPECT_NE(r.out.find("Arrived: tracking"), std::string::npos) << r.out;
  emulator.CloseInput();
  EXPECT_EQ(emulator.Wait(), 0);
}

}  // namespace
}  // namespace scopemount::testing
