// The driver that creates serial ports to remote Bluetooth devices: a seam,
// so tests can replace the system's driver with their own.
#pragma once

#include <cstddef>
#include <cstdint>

namespace scopemount::platform {

// What a port is created for: everything else about it stays at its default
// (the port connects out to the remote device).
struct BluetoothPortParams {
  uint64_t device = 0;  // the remote device's address, in its low 48 bits
  uint8_t channel = 0;  // RFCOMM channel
};

// Handles are nonzero; 0 means "no port".
using BluetoothPortHandle = uintptr_t;
inline constexpr BluetoothPortHandle NO_BLUETOOTH_PORT_HANDLE = 0;

class BluetoothPortDriver {
 public:
  virtual ~BluetoothPortDriver() = default;
  // Creates port `index` for `params` and writes the path of its serial
  // device into `path` (`size` bytes); NO_BLUETOOTH_PORT_HANDLE when the
  // driver refuses the index (taken, no support, no privileges).
  virtual BluetoothPortHandle CreatePort(int32_t index, const BluetoothPortParams& params,
                                         char* path, size_t size) = 0;
  // Removes a port this driver created: its index, or -1 for a handle it
  // does not know.
  virtual int32_t ReleasePort(BluetoothPortHandle handle) = 0;
};

BluetoothPortDriver& ActiveBluetoothPortDriver();
// Makes `driver` the active one (null restores the system driver).
void UseBluetoothPortDriver(BluetoothPortDriver* driver);

// The system's driver (one definition per platform back end): the kernel's
// RFCOMM TTY binding on Linux; on Windows, which has no port-emulation
// driver on the desktop, one that refuses every index.
BluetoothPortDriver& SystemBluetoothPortDriver();

}  // namespace scopemount::platform
