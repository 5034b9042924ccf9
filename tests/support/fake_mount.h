// A mount whose axes stand still unless told where they are: enough to
// drive the mount core and the exported table without hardware or workers.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "interface/current_mount.h"
#include "mount/mount.h"

namespace scopemount::testing {

class FakeMount : public Mount {
 public:
  explicit FakeMount(int32_t model = 7, bool equatorial = false);

  int32_t ReadAxisPosition(uint32_t axis) override;
  int32_t ReadAxisStatus(uint32_t axis) override;
  int32_t SetAxisRate(uint32_t axis, double rate) override;
  int32_t StopAxisMotor(uint32_t axis) override;
  int32_t SetAxisPosition(uint32_t axis, double angle) override;
  int32_t OpenMount() override;
  // Records the targets instead of slewing.
  int32_t GotoAxes(double angle0, double angle1) override;

  // What the hardware reports; tests set these.
  std::atomic<double> hardwarePosition[AXIS_COUNT]{0.0, 0.0};
  std::atomic<uint32_t> hardwareStatus[AXIS_COUNT]{AXIS_STOPPED, AXIS_STOPPED};
  std::atomic<int32_t> readResult{Ok};
  // The code OpenMount returns.
  static std::atomic<int32_t> openResult;
  std::atomic<int> stopCalls{0};
  std::atomic<double> gotoAxesTarget[AXIS_COUNT]{0.0, 0.0};
  std::atomic<int> gotoAxesCalls{0};
};

// Puts a factory of FakeMount behind a model number for the life of the
// object, and disconnects at the end. The mount's own modelId is
// `storedModelId` (the class's number; -1 means the model itself).
class ScopedFakeModel {
 public:
  ScopedFakeModel(int32_t model, bool equatorial, int32_t storedModelId = -1);
  ~ScopedFakeModel();
  ScopedFakeModel(const ScopedFakeModel&) = delete;
  ScopedFakeModel& operator=(const ScopedFakeModel&) = delete;

 private:
  int32_t model_;
  MountFactory previous_;
};

// The connected mount as a FakeMount (null if none or another class).
FakeMount* ConnectedFake();

}  // namespace scopemount::testing
