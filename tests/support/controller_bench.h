// A session against an emulated controller, the way an application has one:
// the controller on the in-process bench (every port the library opens is
// its line), a fast test clock, and a disconnect at the end that lets no
// worker outlive the bench.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <utility>

#include "interface/current_mount.h"
#include "mount/mount.h"
#include "scopemount.h"
#include "support/emulated_port.h"
#include "support/fast_clock.h"

namespace scopemount::testing {

// Disconnects, holding the mount across the disconnect and letting it go
// only once no worker holds it: the mount is then freed here, and no worker
// outlives the caller's fast clock or bench. Returns the real time the
// disconnect call itself took.
inline std::chrono::steady_clock::duration DisconnectOnceWorkersEnd() {
  Mount* mount = CurrentMount();
  if (mount != nullptr) mount->Retain();
  const auto start = std::chrono::steady_clock::now();
  ScopeDisconnect();
  const auto took = std::chrono::steady_clock::now() - start;
  if (mount != nullptr) {
    EXPECT_TRUE(WaitUntil([mount] { return mount->References() == 1; }))
        << "a worker still holds the disconnected mount";
    mount->Release();
  }
  return took;
}

// `controller` on the bench, on a clock `speed` times faster than the wall.
class ControllerBench {
 public:
  ControllerBench(double speed, std::unique_ptr<emulation::ControllerModel> controller)
      : clock_(speed), port_(std::move(controller)) {
    DisconnectOnceWorkersEnd();
  }
  // Before the port and then the clock go.
  ~ControllerBench() { DisconnectOnceWorkersEnd(); }

  int32_t Connect(int32_t model, double latitude = 0.6) {
    return ScopeConnect(model, latitude, 100.0);
  }
  template <typename Controller>
  Controller& controller() {
    return static_cast<Controller&>(port_.model());
  }
  emulation::EmulatedLine& line() { return port_.line(); }

 private:
  ScopedFastClock clock_;
  EmulatedPort port_;
};

}  // namespace scopemount::testing
