#include "platform/bluetooth_port_driver.h"

#include <atomic>

namespace scopemount::platform {

namespace {
std::atomic<BluetoothPortDriver*> activeDriver{nullptr};
}

BluetoothPortDriver& ActiveBluetoothPortDriver() {
  BluetoothPortDriver* driver = activeDriver.load(std::memory_order_acquire);
  return driver != nullptr ? *driver : SystemBluetoothPortDriver();
}

void UseBluetoothPortDriver(BluetoothPortDriver* driver) {
  activeDriver.store(driver, std::memory_order_release);
}

}  // namespace scopemount::platform
