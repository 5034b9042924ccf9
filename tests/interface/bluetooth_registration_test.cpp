// Registering a Bluetooth serial port: the index search, the open test and
// what is left behind, over a replaced port driver.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <vector>

#include "platform/bluetooth_port_driver.h"
#include "platform/port_names.h"
#include "scopemount.h"
#include "serial/port_selection.h"
#include "support/selected_port.h"

namespace scopemount::testing {
namespace {

using platform::BluetoothPortHandle;
using platform::BluetoothPortParams;

constexpr BluetoothPortHandle HANDLE_BASE = 100;
const char* const UNOPENABLE = "/nonexistent/bluetooth-port";
// Every open of the multiplexer is a new pseudo-terminal: a port that opens.
const std::string OPENABLE = "/dev/ptmx";

// Creates ports where a path is given (the empty path refuses the index)
// and records what it was asked.
class FakePortDriver final : public platform::BluetoothPortDriver {
 public:
  FakePortDriver() { platform::UseBluetoothPortDriver(this); }
  ~FakePortDriver() override { platform::UseBluetoothPortDriver(nullptr); }

  BluetoothPortHandle CreatePort(int32_t index, const BluetoothPortParams& params, char* path,
                                 size_t size) override {
    indexes.push_back(index);
    lastParams = params;
    if (index < 0 || index >= 10 || paths[index].empty()) return platform::NO_BLUETOOTH_PORT_HANDLE;
    std::snprintf(path, size, "%s", paths[index].c_str());
    live.push_back(HANDLE_BASE + index);
    return HANDLE_BASE + index;
  }

  int32_t ReleasePort(BluetoothPortHandle handle) override {
    const auto it = std::find(live.begin(), live.end(), handle);
    if (it == live.end()) return -1;
    live.erase(it);
    return static_cast<int32_t>(handle - HANDLE_BASE);
  }

  std::array<std::string, 10> paths;
  std::vector<int32_t> indexes;
  std::vector<BluetoothPortHandle> live;
  BluetoothPortParams lastParams;
};

// The indexes are tried in order; the first that registers and opens is
// taken and chosen for the next connection, and every other port that
// registered is removed again, its index keeping its own device. The driver
// gets the address low word first and the channel's low byte; the caller
// need not want the handle.
TEST(BluetoothRegistration, TakesTheFirstIndexThatRegistersAndOpens) {
  const struct {
    const char* what;
    std::vector<std::pair<int32_t, std::string>> ports;  // index and path; others refused
    int32_t channel;
    uint32_t channelSent;
    int32_t taken;  // -1: none
    bool handleWanted;
  } cases[] = {
      {"the first index, no handle wanted", {{0, OPENABLE}}, 0x105, 5, 0, false},
      {"past refusals and a port that does not open",
       {{2, UNOPENABLE}, {3, OPENABLE}, {4, OPENABLE}}, -1, 0xFF, 3, true},
      {"none opens", {{0, UNOPENABLE}, {4, UNOPENABLE}, {8, UNOPENABLE}}, 1, 1, -1, true},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    ScopeSetComPort(7);
    FakePortDriver driver;
    for (const auto& [index, path] : c.ports) driver.paths[index] = path;
    ScopeDeviceHandle handle = reinterpret_cast<ScopeDeviceHandle>(0x5A5A);
    EXPECT_EQ(ScopeRegisterBluetoothPort(0x33221100u, 0x00005544u, c.channel,
                                         c.handleWanted ? &handle : nullptr),
              c.taken);
    EXPECT_EQ(driver.lastParams.device, 0x554433221100u);
    EXPECT_EQ(driver.lastParams.channel, c.channelSent);
    const int32_t tried = c.taken < 0 ? 10 : c.taken + 1;
    EXPECT_EQ(driver.indexes.size(), static_cast<size_t>(tried)) << "indexes tried in order";
    for (int32_t i = 0; i < tried; ++i) EXPECT_EQ(driver.indexes[i], i);
    EXPECT_EQ(driver.live.size(), c.taken < 0 ? 0u : 1u) << "only the taken port stays";
    EXPECT_EQ(PortNumber(), c.taken < 0 ? 7 : c.taken) << "the next connection's port";
    const bool written = c.taken >= 0 && c.handleWanted;
    EXPECT_EQ(reinterpret_cast<uintptr_t>(handle),
              written ? static_cast<uintptr_t>(HANDLE_BASE + c.taken) : 0x5A5Au);
    for (int32_t port = 0; port < 10; ++port) {
      EXPECT_EQ(PathOf(port), port == c.taken ? OPENABLE : "/dev/ttyS" + std::to_string(port))
          << "index " << port;
    }
    if (c.taken < 0) continue;
    handle = reinterpret_cast<ScopeDeviceHandle>(HANDLE_BASE + c.taken);
    EXPECT_EQ(ScopeReleaseBluetoothPort(handle), SCOPE_OK);
    EXPECT_EQ(PathOf(c.taken), "/dev/ttyS" + std::to_string(c.taken)) << "its own device back";
    EXPECT_EQ(ScopeReleaseBluetoothPort(handle), SCOPE_INVALID_PARAMETER) << "already released";
  }
  SetPortNumber(DEFAULT_PORT_NUMBER);
}

}  // namespace
}  // namespace scopemount::testing
