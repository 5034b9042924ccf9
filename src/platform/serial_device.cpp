#include "platform/serial_device.h"

#include <atomic>

namespace scopemount::platform {

namespace {
std::atomic<SerialDeviceFactory*> activeFactory{nullptr};
}

std::unique_ptr<SerialDevice> OpenSerialDevice(const char* path) {
  if (path == nullptr) return nullptr;
  SerialDeviceFactory* factory = activeFactory.load(std::memory_order_acquire);
  return (factory != nullptr ? *factory : SystemSerialDeviceFactory()).Open(path);
}

void UseSerialDeviceFactory(SerialDeviceFactory* factory) {
  activeFactory.store(factory, std::memory_order_release);
}

}  // namespace scopemount::platform
