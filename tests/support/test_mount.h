// A mount with simulated axes on the active clock, for driving the workers.
//
// Each axis moves piecewise linearly: standing, running at a rate, or
// slewing toward a target at slewSpeed, with positions worked out from the
// tick count whenever they are read, so a fast test clock makes a 30 s
// tracking cycle cost milliseconds. Status bits follow the hardware
// contract: slewing (4) until the axis stands at its target, then stopped
// (1); running (2); positive direction (8). Every command is recorded with
// its tick, and an axis can be made to stop answering.
//
// The geometry is a minimal equatorial or Alt/Az one (nominal matrices for
// the latitude) with the tracking pieces a geometry layer would use.
#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "interface/current_mount.h"
#include "mount/mount.h"
#include "mount/tracking_workers.h"

namespace scopemount::testing {

enum class Geometry { Equatorial, AltAz };

enum class Command { PrepareSlew, SetRate, SlewTo, Stop, SetPosition };

struct CommandRecord {
  Command command = Command::PrepareSlew;
  uint32_t axis = 0;
  double value = 0.0;  // rate or angle
  uint32_t tick = 0;
  bool failed = false;  // answered with a failure code; the axis did not change
};

class TestMount : public Mount {
 public:
  static constexpr double DEFAULT_SLEW_SPEED = 0.13962634015954636;  // 8 degrees/s

  explicit TestMount(Geometry geometry = Geometry::Equatorial, int32_t model = 6);
  ~TestMount() override;

  // Hardware.
  int32_t ReadAxisPosition(uint32_t axis) override;
  int32_t ReadAxisStatus(uint32_t axis) override;
  int32_t PrepareSlew() override;
  int32_t SetAxisRate(uint32_t axis, double rate) override;
  int32_t SlewAxisTo(uint32_t axis, double angle) override;
  int32_t StopAxisMotor(uint32_t axis) override;
  int32_t SetAxisPosition(uint32_t axis, double angle) override;

  // Geometry: nominal matrices and tracking, halting Alt/Az tracking before
  // every motion as a geometry layer does.
  void ResetTransform() override;
  int32_t StartTracking() override;
  int32_t StartTrackingAfter(uint32_t request) override;
  int32_t StopTracking() override;
  int32_t MoveAxis(uint32_t axis, double rate) override;
  int32_t GotoEquatorial(AnglePair sky) override;
  int32_t GotoHorizontal(double azimuth, double altitude) override;
  int32_t GotoAxes(double angle0, double angle1) override;

  // --- Test controls ---------------------------------------------------
  // Where the axis is now, without touching the mount's cached fields.
  double TrueAngle(uint32_t axis) const;
  // Every command so far (copied), or those of one kind.
  std::vector<CommandRecord> Commands() const;
  std::vector<CommandRecord> Commands(Command kind) const;
  size_t CommandCount() const;
  // How many commands of one kind on one axis so far (allocates nothing).
  size_t CommandCount(Command kind, uint32_t axis) const;
  // A silent axis answers nothing: every operation on it fails with its
  // no-response code and changes nothing.
  void SetSilent(uint32_t axis, bool silent) { silent_[axis] = silent; }
  // After `after` more successful ones, the next `count` rate commands on
  // the axis fail with its no-response code (recorded, marked failed).
  void FailRateCommands(uint32_t axis, uint32_t after, uint32_t count);
  // The next `count` position reads on the axis fail.
  void FailPositionReads(uint32_t axis, uint32_t count);
  // The sky position the axes point at now, by the model in force.
  AnglePair TrueSky();
  // While held, position reads wait (at most 20 s of real time) until
  // released: a worker can be stopped at its next read while the test
  // issues a request. ReadsHeld counts the reads waiting now.
  void HoldPositionReads(bool hold);
  int ReadsHeld() const { return readsHeld_; }
  // No slew worker holds the axes any more and both run flags are free.
  bool SlewFinished() const;
  // Puts the axes somewhere without recording a command.
  void PlaceAxes(double angle0, double angle1);

  std::atomic<double> slewSpeed{DEFAULT_SLEW_SPEED};
  std::atomic<int32_t> prepareSlewResult{Ok};
  // PrepareSlew takes this long (test-clock ms): a worker busy in a
  // hardware call that cannot see a request to give up.
  std::atomic<uint32_t> prepareSlewDelayMs{0};
  std::atomic<uint32_t> statusReads{0};
  const Geometry geometry;
  AltAzTracking altAzTracking{*this};

  // Test mounts alive in the process: a released mount must reach 0 again.
  static std::atomic<int> liveCount;

 private:
  enum class Motion { Standing, Running, Slewing };
  struct Axis {
    Motion motion = Motion::Standing;
    double start = 0.0;
    uint32_t startTick = 0;
    double rate = 0.0;    // Running
    double target = 0.0;  // Slewing
  };
  static constexpr size_t LOG_CAPACITY = 8192;

  double AngleAt(const Axis& axis, uint32_t now) const;
  // Brings the axis to `now` and starts a new segment there.
  void Rebase(Axis& axis, uint32_t now);
  uint32_t StatusOf(const Axis& axis) const;
  int32_t NoAnswer(uint32_t axis) const;
  void Record(Command command, uint32_t axis, double value, uint32_t tick,
              bool failed = false);
  void HaltAltAzTracking();

  mutable std::mutex mutex_;
  Axis axes_[AXIS_COUNT];
  // Fixed storage: recording allocates nothing once the mount exists.
  std::unique_ptr<std::array<CommandRecord, LOG_CAPACITY>> log_;
  size_t logSize_ = 0;
  std::atomic<bool> silent_[AXIS_COUNT]{false, false};
  // Injected failures, guarded by mutex_.
  uint32_t ratesBeforeFailure_[AXIS_COUNT]{0, 0};
  uint32_t rateFailures_[AXIS_COUNT]{0, 0};
  uint32_t positionReadFailures_[AXIS_COUNT]{0, 0};
  std::mutex gateMutex_;
  std::condition_variable gateOpened_;
  bool readsHold_ = false;
  std::atomic<int> readsHeld_{0};
};

// Puts TestMounts of the given geometry behind a model number while the
// object lives; disconnects and restores the previous factory at the end.
class ScopedTestModel {
 public:
  ScopedTestModel(int32_t model, Geometry geometry);
  ~ScopedTestModel();
  ScopedTestModel(const ScopedTestModel&) = delete;
  ScopedTestModel& operator=(const ScopedTestModel&) = delete;

 private:
  int32_t model_;
  MountFactory previous_;
};

// The connected mount as a TestMount (null if none or another class).
TestMount* ConnectedTestMount();

// What GetMountStatus reports.
uint32_t MountStatus(Mount& mount);

}  // namespace scopemount::testing
