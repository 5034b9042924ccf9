#include "emulator_clock.h"

namespace scopemount::emulation {

uint64_t WallClock::NowMs() const {
  return static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::milliseconds>(
                                   std::chrono::steady_clock::now().time_since_epoch())
                                   .count());
}

std::chrono::steady_clock::time_point WallClock::RealInstantOf(uint64_t ms) const {
  return std::chrono::steady_clock::time_point(std::chrono::milliseconds(ms));
}

}  // namespace scopemount::emulation
