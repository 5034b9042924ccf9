// Which serial port the next mount opens: chosen at the boundary (or by a
// Bluetooth registration), read by the serial port below it.
#pragma once

#include <cstdint>

namespace scopemount {

inline constexpr int32_t DEFAULT_PORT_NUMBER = 2;
inline constexpr int32_t MAX_PORT_NUMBER = 255;

// Read once by a hardware mount's serial port when it is created.
int32_t PortNumber();
void SetPortNumber(int32_t port);

}  // namespace scopemount
