// Binds a port number to a device path and makes it the port the next
// serial port opens, for the life of the object.
#pragma once

#include <cstdint>
#include <string>

#include "platform/port_names.h"
#include "serial/port_selection.h"

namespace scopemount::testing {

// The device path a port number opens, or "<none>" for a number without one.
inline std::string PathOf(int32_t port) {
  char path[platform::MAX_PORT_PATH + 1];
  return platform::PortDevicePath(port, path, sizeof path) ? path : "<none>";
}

class SelectedPort {
 public:
  SelectedPort(int32_t port, const char* path) : port_(port) {
    bound_ = platform::BindPortPath(port, path);
    SetPortNumber(port);
  }
  ~SelectedPort() {
    platform::BindPortPath(port_, nullptr);
    SetPortNumber(DEFAULT_PORT_NUMBER);
  }
  SelectedPort(const SelectedPort&) = delete;
  SelectedPort& operator=(const SelectedPort&) = delete;

  bool bound() const { return bound_; }

 private:
  const int32_t port_;
  bool bound_ = false;
};

}  // namespace scopemount::testing
