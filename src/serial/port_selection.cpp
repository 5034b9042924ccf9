#include "serial/port_selection.h"

#include <atomic>

namespace scopemount {

namespace {
std::atomic<int32_t> portNumber{DEFAULT_PORT_NUMBER};
}

int32_t PortNumber() { return portNumber; }

void SetPortNumber(int32_t port) { portNumber = port; }

}  // namespace scopemount
