// A demonstration controller for the bench. No mount speaks its protocol:
// it exists so the bench (faults, wiring, hosting) can be exercised before
// the real protocols' models are plugged in, and as a small example of a
// model.
//
// Its protocol: one text command per line, fields separated by one space,
// ending with '\n'; axes 0 and 1; positions in millidegrees, rates in
// millidegrees per second.
//   "POS a"    -> "a <position>\n"
//   "STAT a"   -> "a <status bits>\n"   (1 stopped, 2 running, 4 slewing, 8 positive)
//   "RATE a r" -> "OK\n"                (runs at rate r; 0 stops)
//   "GOTO a p" -> "OK\n"                (slews to p at DEMO_SLEW_RATE)
//   "STOP a"   -> "OK\n"
//   "SET a p"  -> "OK\n"                (declares the position)
//   anything else, or a line longer than DEMO_MAX_LINE -> "ERR\n"
#pragma once

#include <string>

#include "axis_motion.h"
#include "controller_model.h"

namespace scopemount::emulation {

inline constexpr double DEMO_SLEW_RATE = 4000.0;  // millidegrees per second
inline constexpr size_t DEMO_MAX_LINE = 64;

class DemoController final : public ControllerModel {
 public:
  void Receive(const uint8_t* bytes, size_t count, uint64_t nowMs, ReplySink& sink) override;

  double Position(int axis, uint64_t nowMs) { return axes_[axis].Position(nowMs); }

 private:
  std::string Answer(const std::string& line, uint64_t nowMs);

  AxisMotion axes_[2]{AxisMotion(DEMO_SLEW_RATE), AxisMotion(DEMO_SLEW_RATE)};
  std::string line_;
  bool overlong_ = false;
};

}  // namespace scopemount::emulation
