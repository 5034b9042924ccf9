#include "platform/port_names.h"

#include <cstdio>
#include <cstring>
#include <mutex>

namespace scopemount::platform {

namespace {

// Fixed storage: binding and looking up never allocate.
char boundPaths[PORT_TABLE_SIZE][MAX_PORT_PATH + 1] = {};
std::mutex boundPathsMutex;

bool IsInTable(int32_t port) { return port >= 0 && port < PORT_TABLE_SIZE; }

}  // namespace

bool BindPortPath(int32_t port, const char* path) {
  if (!IsInTable(port)) return false;
  const size_t length = path == nullptr ? 0 : std::strlen(path);
  if (length > MAX_PORT_PATH) return false;
  std::lock_guard lock(boundPathsMutex);
  if (length != 0) std::memcpy(boundPaths[port], path, length);
  boundPaths[port][length] = '\0';
  return true;
}

bool PortDevicePath(int32_t port, char* buffer, size_t size) {
  if (!IsInTable(port) || buffer == nullptr || size == 0) return false;
  std::lock_guard lock(boundPathsMutex);
  if (boundPaths[port][0] != '\0') {
    std::snprintf(buffer, size, "%s", boundPaths[port]);
  } else {
    DefaultPortPath(port, buffer, size);
  }
  return true;
}

}  // namespace scopemount::platform
