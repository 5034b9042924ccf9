// A behavioural motor controller for the bench: two axes whose counts
// really move at the commanded step rates and GOTO speeds on the bench's
// clock, status digits that follow the motion, and the gear and timer
// constants of a plausible controller (settable). It speaks from the
// library's own byte-layout table; the library's tests check that table
// against frames worked out by hand, never only against this model.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "axis_motion.h"
#include "controller_model.h"

namespace scopemount::emulation {

struct MotorControllerSettings {
  // As the library reads it: the six digits of the reply in the order sent.
  uint32_t boardVersion = 0x021004;
  uint32_t countsPerRevolution[2] = {3600000, 3600000};
  uint32_t timerFrequency = 1500000;
  uint32_t highSpeedRatio[2] = {16, 16};
  uint32_t wormSteps[2] = {25000, 25000};
  // GOTO speeds in multiples of the sidereal rate.
  double highSpeedGotoRate = 800.0;
  double lowSpeedGotoRate = 128.0;
  // A decelerating stop runs on this long at the speed it had.
  uint32_t brakeMs = 200;
  // Whether the axes start initialised (a mount powered on before).
  bool initialised = false;
};

class MotorControllerEmulator final : public ControllerModel {
 public:
  explicit MotorControllerEmulator(const MotorControllerSettings& settings = {});

  void Receive(const uint8_t* bytes, size_t count, uint64_t nowMs, ReplySink& sink) override;

  // For tests: an axis's count (0 is the library's angle 0) and whether it moves.
  double Count(int axis, uint64_t nowMs);
  bool IsMoving(int axis, uint64_t nowMs);
  // Step rate of a running axis in counts per second (signed), 0 otherwise.
  double RunRate(int axis, uint64_t nowMs);
  // The last motion mode and direction characters sent with G.
  std::string LastMotionMode(int axis);

 private:
  struct Axis {
    AxisMotion motion{1.0};
    char mode = '1';
    char direction = '0';
    uint32_t gotoCount = 0;
    uint32_t period = 0;
    double speed = 0.0;  // counts per second of the current motion
    bool rateMode = true;
    bool initialised = false;
  };
  std::string Answer(const std::string& frame, uint64_t nowMs);
  std::string Execute(char letter, Axis& axis, int index, const std::string& data,
                      uint64_t nowMs);
  void Start(Axis& axis, int index, uint64_t nowMs);
  std::string StatusDigits(Axis& axis, uint64_t nowMs);
  double CountsPerSecondAtSidereal(int index) const;

  std::mutex mutex_;
  MotorControllerSettings settings_;
  Axis axes_[2];
  std::string frame_;
  bool inFrame_ = false;
};

}  // namespace scopemount::emulation
