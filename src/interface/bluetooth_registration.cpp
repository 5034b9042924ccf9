// Registering a serial port to a remote Bluetooth device: the port driver
// creates a port at the first index of 0..9 it accepts that can also be
// opened, and that index becomes the port the next connection uses.
#include "platform/bluetooth_port_driver.h"
#include "platform/port_names.h"
#include "platform/serial_device.h"
#include "scopemount.h"
#include "serial/port_selection.h"

namespace {

using scopemount::platform::BluetoothPortHandle;
using scopemount::platform::BluetoothPortParams;

constexpr int32_t BLUETOOTH_PORT_INDEXES = 10;
constexpr int32_t NO_BLUETOOTH_PORT = -1;
constexpr uint32_t CHANNEL_MASK = 0xFF;

BluetoothPortParams ParamsFor(uint32_t addressLow, uint32_t addressHigh, int32_t channel) {
  BluetoothPortParams params;
  params.device = (uint64_t{addressHigh} << 32) | addressLow;
  params.channel = static_cast<uint8_t>(static_cast<uint32_t>(channel) & CHANNEL_MASK);
  return params;
}

// The port opens under the name the next connection will use.
bool CanOpenPort(int32_t index) {
  char path[scopemount::platform::MAX_PORT_PATH + 1];
  return scopemount::platform::PortDevicePath(index, path, sizeof path) &&
         scopemount::platform::OpenSerialDevice(path) != nullptr;
}

// Binds `index` to the created port and tries it; on failure the index
// gets its previous path back.
bool BindAndTry(int32_t index, const char* created) {
  char previous[scopemount::platform::MAX_PORT_PATH + 1];
  if (created[0] == '\0' ||
      !scopemount::platform::PortDevicePath(index, previous, sizeof previous) ||
      !scopemount::platform::BindPortPath(index, created)) {
    return false;
  }
  if (CanOpenPort(index)) return true;
  scopemount::platform::BindPortPath(index, previous);
  return false;
}

}  // namespace

extern "C" {

int32_t ScopeRegisterBluetoothPort(uint32_t addressLow, uint32_t addressHigh, int32_t channel,
                                   ScopeDeviceHandle* deviceHandle) {
  const BluetoothPortParams params = ParamsFor(addressLow, addressHigh, channel);
  scopemount::platform::BluetoothPortDriver& driver =
      scopemount::platform::ActiveBluetoothPortDriver();
  for (int32_t index = 0; index < BLUETOOTH_PORT_INDEXES; ++index) {
    char created[scopemount::platform::MAX_PORT_PATH + 1] = "";
    const BluetoothPortHandle handle = driver.CreatePort(index, params, created, sizeof created);
    if (handle == scopemount::platform::NO_BLUETOOTH_PORT_HANDLE) continue;
    if (!BindAndTry(index, created)) {
      driver.ReleasePort(handle);
      continue;
    }
    scopemount::SetPortNumber(index);
    if (deviceHandle != nullptr) *deviceHandle = reinterpret_cast<ScopeDeviceHandle>(handle);
    return index;
  }
  return NO_BLUETOOTH_PORT;
}

int32_t ScopeReleaseBluetoothPort(ScopeDeviceHandle deviceHandle) {
  const int32_t index = scopemount::platform::ActiveBluetoothPortDriver().ReleasePort(
      reinterpret_cast<BluetoothPortHandle>(deviceHandle));
  if (index < 0) return SCOPE_INVALID_PARAMETER;
  // The index opens its ordinary device again.
  scopemount::platform::BindPortPath(index, nullptr);
  return SCOPE_OK;
}

}  // extern "C"
