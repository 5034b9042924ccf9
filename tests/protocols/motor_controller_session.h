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
#include "support/controller_bench.h"

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

// The motor controller on the bench; RunRate reads its axes in radians.
class MotorControllerBench : public ControllerBench<emulation::MotorControllerEmulator> {
 public:
  explicit MotorControllerBench(double speed,
                                const emulation::MotorControllerSettings& settings = {})
      : ControllerBench(speed, settings), settings_(settings) {}
  // Counts per second of `axis` as radians per second.
  double RunRate(int axis) {
    return controller().RunRate(axis, NowMs()) * TWO_PI / settings_.countsPerRevolution[axis];
  }

 private:
  emulation::MotorControllerSettings settings_;
};

}  // namespace scopemount::testing::motor_controller_tests
