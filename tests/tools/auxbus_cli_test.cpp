// The program against the AUX-bus controllers that `scopemount emulate
// auxbus` serves (hosted here in-process on a pseudo-terminal, so the test
// can place the axes): connect, status and a short GOTO of models 0 and 1.
#include <gtest/gtest.h>

#include <string>

#include "aux_bus_controllers.h"
#include "emulated_line.h"
#include "emulated_protocols.h"
#include "pty_host.h"
#include "support/process.h"

namespace scopemount::testing {
namespace {

constexpr double DEG = 3.141592653589793 / 180.0;

struct CliCase {
  const char* model;
  const char* name;
  double controller[2];  // where the controllers stand, degrees
  const char* axes[2];   // a GOTO half a degree away, in the library's angles
};

TEST(AuxBusCli, StatusAndAShortGotoOverTheServedBus) {
  const CliCase cases[] = {
      {"0", "Marvane Alt/Az Mount", {10.0, 5.0}, {"10.5", "5.5"}},
      {"1", "Marvane EQ Mount", {90.0, 60.0}, {"-89.5", "60.5"}},
  };
  for (const CliCase& c : cases) {
    SCOPED_TRACE(c.name);
    const emulation::EmulatedProtocol* protocol = emulation::FindEmulatedProtocol("auxbus");
    ASSERT_NE(protocol, nullptr);
    emulation::WallClock wall;
    emulation::AuxBusControllers bus;
    emulation::EmulatedLine line(bus, wall);
    line.SetWiring(protocol->wiring);
    for (uint32_t axis = 0; axis < 2; ++axis) {
      bus.SetPosition(axis, c.controller[axis] * DEG, wall.NowMs());
    }
    emulation::PtyHost host(line);
    ASSERT_TRUE(host.Start());

    const ProcessResult status =
        RunProcess(SCOPEMOUNT_CLI_PATH, {"status", "--model", c.model, "--port", host.Path()});
    EXPECT_EQ(status.exitStatus, 0) << status.out << status.err;
    EXPECT_NE(status.out.find(c.name), std::string::npos) << status.out;

    const ProcessResult moved = RunProcess(
        SCOPEMOUNT_CLI_PATH,
        {"goto", "--model", c.model, "--port", host.Path(), "--axes", c.axes[0], c.axes[1]});
    EXPECT_EQ(moved.exitStatus, 0) << moved.out << moved.err;
    EXPECT_NE(moved.out.find("Arrived"), std::string::npos) << moved.out;
  }
}

}  // namespace
}  // namespace scopemount::testing
