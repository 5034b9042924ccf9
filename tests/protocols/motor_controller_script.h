// A controller that answers from a script, for checking the exact bytes
// the motor-controller layer writes and how it reads each reply form. Each
// command (its frame between ':' and '\r', e.g. "j1") takes the next of its
// scripted replies, the last one repeating; unscripted commands get "=\r".
#pragma once

#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "controller_model.h"
#include "protocols/motorcontroller/motor_controller_mount.h"
#include "support/emulated_port.h"
#include "support/fast_clock.h"

namespace scopemount::testing::motor_controller_tests {

// A reply that never comes.
inline const std::string SILENCE = "<silent>";

class ScriptedController final : public emulation::ControllerModel {
 public:
  void Receive(const uint8_t* bytes, size_t count, uint64_t, emulation::ReplySink& sink) override {
    std::lock_guard<std::mutex> lock(mutex_);
    for (size_t i = 0; i < count; ++i) {
      const char c = static_cast<char>(bytes[i]);
      if (c == ':') {
        frame_.clear();
      } else if (c != '\r') {
        frame_ += c;
      } else {
        const std::string reply = Next(frame_);
        if (reply != SILENCE) sink.Reply(reinterpret_cast<const uint8_t*>(reply.data()), reply.size());
      }
    }
  }
  void Script(const std::string& frame, std::vector<std::string> replies) {
    std::lock_guard<std::mutex> lock(mutex_);
    script_[frame] = std::deque<std::string>(replies.begin(), replies.end());
  }

 private:
  std::string Next(const std::string& frame) {
    auto found = script_.find(frame);
    if (found == script_.end() || found->second.empty()) return "=\r";
    std::string reply = found->second.front();
    if (found->second.size() > 1) found->second.pop_front();
    return reply;
  }
  std::mutex mutex_;
  std::map<std::string, std::deque<std::string>> script_;
  std::string frame_;
};

// A scripted controller behind the library's serial port, on a fast clock
// (a reply that never comes costs half a second of it).
struct ScriptedLine {
  ScopedFastClock clock{100.0};
  EmulatedPort port{std::make_unique<ScriptedController>()};
  ScriptedController& controller() { return static_cast<ScriptedController&>(port.model()); }
  // What the library wrote since the last call.
  std::string Written() {
    const std::vector<uint8_t> bytes = port.line().TakeHostBytes();
    return std::string(bytes.begin(), bytes.end());
  }
};

// A reference controller with round constants: 1,000,000 counts per revolution on
// both axes, a 50,000 Hz timer, high-speed ratio 16.
inline constexpr double EXAMPLE_COUNTS = 1000000.0;
inline constexpr uint32_t EXAMPLE_TIMER = 50000;
inline void LoadExampleConstants(MotorControllerMount& mount) {
  for (uint32_t axis = 0; axis < AXIS_COUNT; ++axis) {
    mount.countsPerRadian[axis] = EXAMPLE_COUNTS / TWO_PI;
    mount.radiansPerCount[axis] = TWO_PI / EXAMPLE_COUNTS;
    mount.timerFrequency[axis] = EXAMPLE_TIMER;
    mount.periodFactor[axis] = EXAMPLE_TIMER / mount.countsPerRadian[axis];
    mount.highSpeedRatio[axis] = 16;
    mount.brakeSteps[axis] = BRAKE_STEPS;
    mount.lowSpeedGotoLimit[axis] = 7427;
  }
}

}  // namespace scopemount::testing::motor_controller_tests
