// The time an emulated controller lives on. Tests hand the bench the
// library's own (possibly fast) clock, so a controller's motion and a late
// reply keep pace with the port's time-outs; a served emulator uses the wall.
#pragma once

#include <chrono>
#include <cstdint>

namespace scopemount::emulation {

class EmulatorClock {
 public:
  virtual ~EmulatorClock() = default;
  // Milliseconds since an arbitrary start; never goes back.
  virtual uint64_t NowMs() const = 0;
  // The steady-clock instant at which this clock reads `ms`.
  virtual std::chrono::steady_clock::time_point RealInstantOf(uint64_t ms) const = 0;
};

// The wall's monotonic clock.
class WallClock final : public EmulatorClock {
 public:
  uint64_t NowMs() const override;
  std::chrono::steady_clock::time_point RealInstantOf(uint64_t ms) const override;
};

}  // namespace scopemount::emulation
