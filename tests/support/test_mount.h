// A mount on the simulators' software motors, for driving the mount core
// and its workers: every command is recorded with its tick, and an axis can
// be made to stop answering, fail some commands or hold its position reads.
//
// The geometry is that of the equatorial or the Alt/Az layer, chosen when
// the mount is made: every geometry operation goes to that layer.
#pragma once

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

#include "geometry/altaz_mount.h"
#include "geometry/equatorial_mount.h"
#include "geometry/simulated_motors.h"
#include "interface/current_mount.h"
#include "mount/mount.h"
#include "support/fast_clock.h"

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

class TestMount final : public EquatorialMount, public AltAzMount {
 public:
  static constexpr double DEFAULT_SLEW_SPEED = 0.13962634015954636;  // 8 degrees/s

  // The model number defaults to the simulator of the geometry (6 or 7).
  explicit TestMount(Geometry geometry = Geometry::Equatorial, int32_t model = -1);
  ~TestMount() override;

  // Hardware.
  int32_t OpenMount() override { return Ok; }
  int32_t ReadAxisPosition(uint32_t axis) override;
  int32_t ReadAxisStatus(uint32_t axis) override;
  int32_t PrepareSlew() override;
  int32_t SetAxisRate(uint32_t axis, double rate) override;
  int32_t SlewAxisTo(uint32_t axis, double angle) override;
  int32_t StopAxisMotor(uint32_t axis) override;
  int32_t SetAxisPosition(uint32_t axis, double angle) override;

  // Geometry: the layer of `geometry` (a layer that does not override an
  // operation names the core's).
#define SCOPEMOUNT_TEST_LAYER(call) \
  (Equatorial() ? EquatorialMount::call : AltAzMount::call)
  int32_t SkyToAxes(AnglePair* sky, AnglePair* axes, int applyTerms) override {
    return SCOPEMOUNT_TEST_LAYER(SkyToAxes(sky, axes, applyTerms));
  }
  int32_t RateAlignmentStar(const AnglePair& star) override {
    return SCOPEMOUNT_TEST_LAYER(RateAlignmentStar(star));
  }
  void ResetTransform() override { SCOPEMOUNT_TEST_LAYER(ResetTransform()); }
  double GetAxisMisalignment() override { return SCOPEMOUNT_TEST_LAYER(GetAxisMisalignment()); }
  int32_t RateSecondStar(AnglePair first, AnglePair second, int32_t method) override {
    return SCOPEMOUNT_TEST_LAYER(RateSecondStar(first, second, method));
  }
  int32_t RateThirdStar(AnglePair first, AnglePair second, AnglePair third) override {
    return SCOPEMOUNT_TEST_LAYER(RateThirdStar(first, second, third));
  }
  int32_t AlignOneStar(AnglePair sky, AnglePair axes) override {
    return SCOPEMOUNT_TEST_LAYER(AlignOneStar(sky, axes));
  }
  int32_t AlignTwoStars(StarObservation first, StarObservation second) override {
    return SCOPEMOUNT_TEST_LAYER(AlignTwoStars(first, second));
  }
  int32_t AlignThreeStars(StarObservation first, StarObservation second,
                          StarObservation third) override {
    return SCOPEMOUNT_TEST_LAYER(AlignThreeStars(first, second, third));
  }
  int32_t StartTracking() override { return SCOPEMOUNT_TEST_LAYER(StartTracking()); }
  int32_t StartTrackingAfter(uint32_t request) override {
    return SCOPEMOUNT_TEST_LAYER(StartTrackingAfter(request));
  }
  int32_t StopTracking() override { return SCOPEMOUNT_TEST_LAYER(StopTracking()); }
  int32_t MoveAxis(uint32_t axis, double rate) override {
    return SCOPEMOUNT_TEST_LAYER(MoveAxis(axis, rate));
  }
  int32_t StopAxis(uint32_t axis) override { return SCOPEMOUNT_TEST_LAYER(StopAxis(axis)); }
  int32_t GotoEquatorial(AnglePair sky) override {
    return SCOPEMOUNT_TEST_LAYER(GotoEquatorial(sky));
  }
  int32_t GotoHorizontal(double azimuth, double altitude) override {
    return SCOPEMOUNT_TEST_LAYER(GotoHorizontal(azimuth, altitude));
  }
#undef SCOPEMOUNT_TEST_LAYER
  int32_t GotoAxes(double angle0, double angle1) override;

  // --- Test controls ---------------------------------------------------
  // Where the axis is now.
  double TrueAngle(uint32_t axis);
  // The sky position the axes point at now, by the model in force.
  AnglePair TrueSky();
  // Every command so far (copied); those of one kind, on one axis or any,
  // from the `from`th command on.
  static constexpr uint32_t ANY_AXIS = AXIS_COUNT;
  std::vector<CommandRecord> Commands() const;
  std::vector<CommandRecord> Commands(Command kind, uint32_t axis = ANY_AXIS,
                                      size_t from = 0) const;
  // The kinds of the commands from the `from`th on, in order.
  std::vector<Command> KindsSince(size_t from) const;
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
  // While held, position reads wait (at most 20 s of real time) until
  // released: a worker can be stopped at its next read while the test
  // issues a request. ReadsHeld counts the reads waiting now.
  void HoldPositionReads(bool hold);
  int ReadsHeld() const { return readsHeld_; }
  // No slew worker holds the axes any more and both run flags are free.
  bool SlewFinished() const;
  // Stops both axes where given, without recording a command.
  void PlaceAxes(double angle0, double angle1);
  // New motors at the current angles (before any worker runs).
  void SetSlewSpeed(double radiansPerSecond);

  std::atomic<int32_t> prepareSlewResult{Ok};
  // PrepareSlew takes this long (test-clock ms): a worker busy in a
  // hardware call that cannot see a request to give up.
  std::atomic<uint32_t> prepareSlewDelayMs{0};
  // GotoAxes records its targets here and starts nothing while set: the
  // exported single-axis slew checked without a worker.
  std::atomic<bool> captureGotoAxes{false};
  std::atomic<double> capturedGotoAxes[AXIS_COUNT]{0.0, 0.0};
  std::atomic<int> capturedGotoAxesCalls{0};
  const Geometry geometry;

  // Test mounts alive in the process: a released mount must reach 0 again.
  static std::atomic<int> liveCount;

 private:
  static constexpr size_t LOG_CAPACITY = 8192;

  int32_t NoAnswer(uint32_t axis) const;
  // Checks the axis and the silence; records the command if it answers.
  bool Answers(Command command, uint32_t axis, double value);
  // Appends to the log (mutex_ held); a full log keeps its first records.
  void Record(Command command, uint32_t axis, double value, bool failed);
  bool Equatorial() const { return geometry == Geometry::Equatorial; }

  std::unique_ptr<SimulatedMotors> motors_;
  mutable std::mutex mutex_;
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
// The mount's own modelId is `storedModelId` (-1: the model itself).
class ScopedTestModel {
 public:
  ScopedTestModel(int32_t model, Geometry geometry, int32_t storedModelId = -1);
  ~ScopedTestModel();
  ScopedTestModel(const ScopedTestModel&) = delete;
  ScopedTestModel& operator=(const ScopedTestModel&) = delete;

 private:
  int32_t model_;
  MountFactory previous_;
};

// Where `mount` sees `sky` with its model and terms.
inline AnglePair AxesOf(Mount& mount, AnglePair sky) {
  AnglePair axes;
  mount.SkyToAxes(&sky, &axes, 1);
  return axes;
}

inline StarObservation Observe(Mount& mount, AnglePair sky) { return {sky, AxesOf(mount, sky)}; }

// The connected mount as a TestMount (null if none or another class).
TestMount* ConnectedTestMount();

// What GetMountStatus reports.
uint32_t MountStatus(Mount& mount);

}  // namespace scopemount::testing
