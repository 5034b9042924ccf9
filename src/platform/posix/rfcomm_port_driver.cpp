// Bluetooth serial ports through the kernel's RFCOMM TTY binding: port
// index i becomes /dev/rfcomm<i>, connected to the remote device when it is
// opened. Without Bluetooth support or the privilege to bind, every index is
// refused.
#include <bluetooth/bluetooth.h>
#include <bluetooth/rfcomm.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>

#include "platform/bluetooth_port_driver.h"
#include "platform/never_destroyed.h"

namespace scopemount::platform {

namespace {

constexpr int32_t RFCOMM_DEVICE_COUNT = 256;
constexpr int BDADDR_BYTES = 6;

// Runs one RFCOMM device request; the ioctl's result, or -1.
int RfcommRequest(unsigned long request, rfcomm_dev_req& device) {
  const int control = socket(AF_BLUETOOTH, SOCK_RAW | SOCK_CLOEXEC, BTPROTO_RFCOMM);
  if (control < 0) return -1;
  const int result = ioctl(control, request, &device);
  close(control);
  return result;
}

// Addresses travel least significant byte first.
bdaddr_t AddressOf(uint64_t device) {
  bdaddr_t address{};
  for (int i = 0; i < BDADDR_BYTES; ++i) address.b[i] = static_cast<uint8_t>(device >> (8 * i));
  return address;
}

class RfcommPortDriver final : public BluetoothPortDriver {
 public:
  BluetoothPortHandle CreatePort(int32_t index, const BluetoothPortParams& params, char* path,
                                 size_t size) override {
    if (index < 0 || index >= RFCOMM_DEVICE_COUNT || path == nullptr) {
      return NO_BLUETOOTH_PORT_HANDLE;
    }
    rfcomm_dev_req device{};
    device.dev_id = static_cast<int16_t>(index);
    device.flags = 0;  // a plain binding: the line connects when it is opened
    device.dst = AddressOf(params.device);
    device.channel = params.channel;
    const int created = RfcommRequest(RFCOMMCREATEDEV, device);
    if (created < 0 || created >= RFCOMM_DEVICE_COUNT) return NO_BLUETOOTH_PORT_HANDLE;
    std::snprintf(path, size, "/dev/rfcomm%d", created);
    bound_[created] = true;
    return static_cast<BluetoothPortHandle>(created) + 1;
  }

  int32_t ReleasePort(BluetoothPortHandle handle) override {
    if (handle == NO_BLUETOOTH_PORT_HANDLE || handle > RFCOMM_DEVICE_COUNT) return -1;
    const int32_t index = static_cast<int32_t>(handle - 1);
    if (!bound_[index].exchange(false)) return -1;
    rfcomm_dev_req device{};
    device.dev_id = static_cast<int16_t>(index);
    RfcommRequest(RFCOMMRELEASEDEV, device);
    return index;
  }

 private:
  // Only ports bound by this library can be released through it.
  std::atomic<bool> bound_[RFCOMM_DEVICE_COUNT] = {};
};

}  // namespace

// Never destroyed: the port bindings must outlive any thread still using
// them while the process exits.
BluetoothPortDriver& SystemBluetoothPortDriver() {
  static NeverDestroyed<RfcommPortDriver> rfcomm;
  return rfcomm.get();
}

}  // namespace scopemount::platform
