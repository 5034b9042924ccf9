// Models 2 to 5 driven the way an application drives them: through the C
// boundary, against the behavioural controller on the bench, on a fast
// test clock.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <string>
#include <thread>

#include "geometry/simulator_session.h"
#include "motor_controller_emulator.h"
#include "support/emulated_port.h"

namespace scopemount::testing::motor_controller_tests {

inline constexpr int32_t MOTOR_CONTROLLER_MODELS[] = {2, 3, 4, 5};

inline bool IsEquatorialModel(int32_t model) { return model == 3 || model == 4; }

inline double MotorControllerTolerance(int32_t model) {
  return IsEquatorialModel(model) ? 0.0005817764173314432 : 0.0014544410433286077;
}

inline std::string MotorControllerModelName(const ::testing::TestParamInfo<int32_t>& info) {
  return "Model" + std::to_string(info.param);
}

// Waits on a condition that asks the controller: polled at a pace that
// leaves the line to the workers.
template <typename Condition>
bool WaitOnController(Condition&& condition,
                      std::chrono::milliseconds timeout = std::chrono::seconds(30)) {
  return WaitUntil(
      [&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return condition();
      },
      timeout);
}

// The bench (controller and line) on a fast clock; Connect links a model.
class ControllerBench {
 public:
  explicit ControllerBench(double speed,
                           const emulation::MotorControllerSettings& settings = {})
      : settings_(settings),
        clock_(std::make_unique<ScopedFastClock>(speed)),
        port_(std::make_unique<EmulatedPort>(
            std::make_unique<emulation::MotorControllerEmulator>(settings))) {
    ScopeDisconnect();
  }
  ~ControllerBench() {
    ScopeDisconnect();
    port_.reset();
    clock_.reset();
  }
  ControllerBench(const ControllerBench&) = delete;
  ControllerBench& operator=(const ControllerBench&) = delete;

  int32_t Connect(int32_t model, double latitude = 0.6) {
    return ScopeConnect(model, latitude, 100.0);
  }
  emulation::EmulatedLine& line() { return port_->line(); }
  emulation::MotorControllerEmulator& controller() {
    return static_cast<emulation::MotorControllerEmulator&>(port_->model());
  }
  uint64_t NowMs() const { return clock_->NowMs(); }
  // Counts per second of `axis` as radians per second.
  double RunRate(int axis) {
    return controller().RunRate(axis, NowMs()) * TWO_PI / settings_.countsPerRevolution[axis];
  }

 private:
  emulation::MotorControllerSettings settings_;
  std::unique_ptr<ScopedFastClock> clock_;
  std::unique_ptr<EmulatedPort> port_;
};

}  // namespace scopemount::testing::motor_controller_tests
