// Two motor controllers on one AUX bus, as the bench hosts them: axis 0 at
// 0x10, axis 1 at 0x11. Each answers the packets addressed to it, with
// positions that move at the commanded rates and GOTO speeds on the
// bench's clock. The wire's echo of the host's bytes is the line's job
// (LineWiring::echo); the bus's own faults are set here.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include "axis_motion.h"
#include "controller_model.h"

namespace scopemount::emulation {

// Speeds of the controllers' two GOTOs, radians per second.
inline constexpr double AUX_EMULATED_FAST_GOTO = 0.06981317007977318;   // 4 degrees/s
inline constexpr double AUX_EMULATED_SLOW_GOTO = 0.008726646259971648;  // 0.5 degree/s

// What is wrong on the bus, from now on.
struct AuxBusFaults {
  bool missing[2] = {false, false};  // the controller is not on the bus
  bool badChecksum = false;          // replies carry a wrong checksum
  bool wrongSource = false;          // replies name another sender
};

class AuxBusControllers final : public ControllerModel {
 public:
  AuxBusControllers();
  void Receive(const uint8_t* bytes, size_t count, uint64_t nowMs, ReplySink& sink) override;

  void SetFaults(const AuxBusFaults& faults);
  void SetVersion(uint32_t axis, uint8_t major, uint8_t minor);

  // The controller's own angle (radians in [-pi, pi)) and motion status.
  double Position(uint32_t axis, uint64_t nowMs);
  uint32_t Status(uint32_t axis, uint64_t nowMs);
  // Declares a controller's angle, as if the mount had been moved by hand.
  void SetPosition(uint32_t axis, double angle, uint64_t nowMs);
  // The last value each per-axis setting command was given (0xFD, 0x10,
  // 0x11), and the commands each controller has answered.
  uint8_t Setting(uint32_t axis, uint8_t command) const;
  uint32_t CommandsAnswered(uint32_t axis) const;

 private:
  struct Controller {
    AxisMotion motion{AUX_EMULATED_FAST_GOTO};
    uint8_t version[2] = {7, 11};
    uint8_t approach = 0;
    uint8_t positiveSetting = 0;
    uint8_t negativeSetting = 0;
    uint32_t answered = 0;
  };

  void TakePacket(const uint8_t* packet, size_t size, uint64_t nowMs, ReplySink& sink);
  // Fills `data` with the answer's data bytes and returns their count.
  size_t Answer(Controller& controller, uint8_t command, const uint8_t* data, size_t count,
                uint64_t nowMs, uint8_t* answer);
  double WrappedPosition(Controller& controller, uint64_t nowMs);

  mutable std::mutex mutex_;
  Controller controllers_[2];
  AuxBusFaults faults_;
  std::vector<uint8_t> pending_;
};

}  // namespace scopemount::emulation
