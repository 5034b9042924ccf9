// Device paths of the numbered serial ports: a path bound to the number,
// else the platform's own name for it (/dev/ttyS<N> on POSIX; on Windows
// COM<N>, and \\.\COM<N> from 10 on, the only form those open under).
#pragma once

#include <cstddef>
#include <cstdint>

namespace scopemount::platform {

inline constexpr size_t MAX_PORT_PATH = 255;  // bytes, without the terminator
inline constexpr int32_t PORT_TABLE_SIZE = 256;

// Binds port 0..255 to `path`; null or empty unbinds. False for a port
// outside the table or a path longer than MAX_PORT_PATH.
bool BindPortPath(int32_t port, const char* path);

// Writes the device path of `port` into `buffer` (at least MAX_PORT_PATH + 1
// bytes); false for a port outside the table.
bool PortDevicePath(int32_t port, char* buffer, size_t size);

// The platform's name of port 0..255 when nothing is bound to it (one
// definition per platform back end).
void DefaultPortPath(int32_t port, char* buffer, size_t size);

}  // namespace scopemount::platform
