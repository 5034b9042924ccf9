// `scopemount emulate`: the served controller answers the library's port on
// the printed path, and the program ends on end of input or on Ctrl-C.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "support/process.h"

namespace scopemount::testing {
namespace {

using namespace std::chrono_literals;

// Two programs side by side, as the README shows them: a hardware model's
// controller served on a pseudo-terminal, and a short GOTO through it.
struct ServedGoto {
  const char* protocol;
  const char* model;
  const char* name;
  std::vector<std::string> target;
  const char* arrived;
};

TEST(EmulateCommand, EachHardwareProtocolServesAGotoOfItsModels) {
  const ServedGoto cases[] = {
      {"auxbus", "0", "Marvane Alt/Az Mount", {"--axes", "0.5", "0.5"}, "Arrived: idle"},
      // The equatorial controller's zero reads as axis 0 at -180 degrees.
      {"auxbus", "1", "Marvane EQ Mount", {"--axes", "-179.5", "0.5"}, "Arrived: idle"},
      {"motorcontroller", "2", "Hollin Alt/Az Mount", {"--axes", "3", "2"}, "Arrived: idle"},
      // Low in the sky at this site, so the slew is short.
      {"compact", "8", "Marvane Corvel K-1 Alt/Az Mount",
       {"--star", "Polaris", "--lat", "5", "--lon", "0"}, "Arrived: tracking"},
  };
  for (const ServedGoto& c : cases) {
    SCOPED_TRACE(std::string(c.protocol) + " model " + c.model);
    // The emulator prints the device path on its first line.
    ChildProcess emulator(SCOPEMOUNT_CLI_PATH, {"emulate", c.protocol});
    ASSERT_TRUE(emulator.WaitForText("\n", 20s)) << emulator.err();
    const std::string path = emulator.out().substr(0, emulator.out().find('\n'));
    ASSERT_EQ(path.rfind("/dev/pts/", 0), 0u) << path;
    std::vector<std::string> arguments{"goto", "--model", c.model, "--port", path};
    arguments.insert(arguments.end(), c.target.begin(), c.target.end());
    const ProcessResult r = RunProcess(SCOPEMOUNT_CLI_PATH, arguments);
    EXPECT_EQ(r.exitStatus, 0) << r.out << r.err;
    EXPECT_NE(r.out.find(std::string("Connected: ") + c.name), std::string::npos) << r.out;
    EXPECT_NE(r.out.find(c.arrived), std::string::npos) << r.out;
    // Either way of ending serving (every other case) is a normal end.
    if ((&c - cases) % 2 == 1) {
      emulator.Interrupt();
    } else {
      emulator.CloseInput();
    }
    EXPECT_EQ(emulator.WaitForExit(20s), 0);
  }
}

}  // namespace
}  // namespace scopemount::testing
