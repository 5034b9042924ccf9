// Desktop Windows has no Bluetooth port-emulation driver to register ports
// with (paired devices bring their own COM ports, chosen by number), so the
// system driver refuses every index and registration reports -1.
#include "platform/bluetooth_port_driver.h"
#include "platform/never_destroyed.h"

namespace scopemount::platform {

namespace {

class NoBluetoothPortDriver final : public BluetoothPortDriver {
 public:
  BluetoothPortHandle CreatePort(int32_t, const BluetoothPortParams&, char*, size_t) override {
    return NO_BLUETOOTH_PORT_HANDLE;
  }
  int32_t ReleasePort(BluetoothPortHandle) override { return -1; }
};

}  // namespace

BluetoothPortDriver& SystemBluetoothPortDriver() {
  static NeverDestroyed<NoBluetoothPortDriver> none;
  return none.get();
}

}  // namespace scopemount::platform
