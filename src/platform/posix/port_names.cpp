#include <cstdio>

#include "platform/port_names.h"

namespace scopemount::platform {

void DefaultPortPath(int32_t port, char* buffer, size_t size) {
  std::snprintf(buffer, size, "/dev/ttyS%d", static_cast<int>(port));
}

}  // namespace scopemount::platform
