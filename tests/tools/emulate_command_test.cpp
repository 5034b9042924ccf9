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

}  // namespace
}  // namespace scopemount::testing
