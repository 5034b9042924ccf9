#include <cstdio>

#include "platform/port_names.h"

namespace scopemount::platform {

namespace {
// COM1 to COM9 are also reachable under their bare names; higher numbers
// only through the device namespace.
constexpr int32_t LAST_BARE_COM_PORT = 9;
}  // namespace

void DefaultPortPath(int32_t port, char* buffer, size_t size) {
  std::snprintf(buffer, size, port <= LAST_BARE_COM_PORT ? "COM%d" : "\\\\.\\COM%d",
                static_cast<int>(port));
}

}  // namespace scopemount::platform
