#include "support/test_mount.h"

#include <cmath>
#include <utility>

#include "geometry/nominal_transform.h"
#include "interface/messages.h"
#include "mount/motion_workers.h"
#include "platform/clock.h"

namespace scopemount::testing {

std::atomic<int32_t> TestMount::openResult{Ok};
std::atomic<int> TestMount::liveCount{0};

TestMount::TestMount(Geometry geometryKind, int32_t model)
    : geometry(geometryKind),
      motors_(std::make_unique<SimulatedMotors>(*this, DEFAULT_SLEW_SPEED, AnglePair{0.0, 0.0})),
      log_(std::make_unique<std::array<CommandRecord, LOG_CAPACITY>>()) {
  modelId = model;
  isEquatorial = geometry == Geometry::Equatorial ? 1 : 0;
  TestMount::ResetTransform();
  ++liveCount;
}

TestMount::~TestMount() { --liveCount; }

// --- Hardware ----------------------------------------------------------------

int32_t TestMount::NoAnswer(uint32_t axis) const {
  return axis == 0 ? NoResponseAxis1 : NoResponseAxis2;
}

bool TestMount::Answers(Command command, uint32_t axis, double value) {
  if (silent_[axis]) return false;
  std::lock_guard lock(mutex_);
  if (logSize_ < LOG_CAPACITY) {
    (*log_)[logSize_++] = {command, axis, value, platform::TickCount(), false};
  }
  return true;
}

int32_t TestMount::ReadAxisPosition(uint32_t axis) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  if (silent_[axis]) return NoAnswer(axis);
  {
    std::unique_lock gate(gateMutex_);
    ++readsHeld_;
    gateOpened_.wait_for(gate, std::chrono::seconds(20), [this] { return !readsHold_; });
    --readsHeld_;
  }
  {
    std::lock_guard lock(mutex_);
    if (positionReadFailures_[axis] > 0) {
      --positionReadFailures_[axis];
      return NoAnswer(axis);
    }
  }
  return motors_->ReadPosition(axis);
}

int32_t TestMount::ReadAxisStatus(uint32_t axis) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  if (silent_[axis]) return NoAnswer(axis);
  return motors_->ReadStatus(axis);
}

int32_t TestMount::PrepareSlew() {
  Answers(Command::PrepareSlew, 0, 0.0);
  const uint32_t delay = prepareSlewDelayMs;
  if (delay != 0) platform::Sleep(delay);
  return prepareSlewResult;
}

int32_t TestMount::SetAxisRate(uint32_t axis, double rate) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  if (silent_[axis]) return NoAnswer(axis);
  {
    std::lock_guard lock(mutex_);
    if (ratesBeforeFailure_[axis] > 0) {
      --ratesBeforeFailure_[axis];
    } else if (rateFailures_[axis] > 0) {
      --rateFailures_[axis];
      if (logSize_ < LOG_CAPACITY) {
        (*log_)[logSize_++] = {Command::SetRate, axis, rate, platform::TickCount(), true};
      }
      return NoAnswer(axis);
    }
  }
  Answers(Command::SetRate, axis, rate);
  return motors_->SetRate(axis, rate);
}

int32_t TestMount::SlewAxisTo(uint32_t axis, double angle) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  if (!Answers(Command::SlewTo, axis, angle)) return NoAnswer(axis);
  return motors_->SlewTo(axis, angle);
}

int32_t TestMount::StopAxisMotor(uint32_t axis) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  if (!Answers(Command::Stop, axis, 0.0)) return NoAnswer(axis);
  return motors_->Stop(axis);
}

int32_t TestMount::SetAxisPosition(uint32_t axis, double angle) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  if (!Answers(Command::SetPosition, axis, angle)) return NoAnswer(axis);
  return motors_->SetPosition(axis, angle);
}

// --- Geometry --------------------------------------------------------------

void TestMount::ResetTransform() {
  const double lat = latitude;
  Matrix3 skyToAxes(1.0);
  if (geometry == Geometry::AltAz) {
    // Azimuth from north toward east, altitude.
    skyToAxes = Matrix3(-1.0);
    skyToAxes.at(0, 0) = -std::sin(lat);
    skyToAxes.at(0, 2) = std::cos(lat);
    skyToAxes.at(2, 0) = std::cos(lat);
    skyToAxes.at(2, 2) = std::sin(lat);
  } else if (lat < 0.0) {
    // Southern equatorial mounts see (-hour angle, -declination).
    skyToAxes = Matrix3(-1.0);
    skyToAxes.at(0, 0) = 1.0;
  }
  LoadNominalTransform(pointing, skyToAxes);
}

void TestMount::HaltAltAzTracking() {
  if (geometry == Geometry::AltAz && altAzTracking.IsRunning()) altAzTracking.Halt();
}

int32_t TestMount::StartTracking() {
  if (geometry == Geometry::AltAz) return altAzTracking.Start();
  return StartEquatorialTracking(*this);
}

int32_t TestMount::StartTrackingAfter(uint32_t request) {
  if (!IsLatestOnBothAxes(request)) return Ok;
  if (geometry == Geometry::AltAz) return altAzTracking.Start(request);
  return StartEquatorialTracking(*this, request);
}

int32_t TestMount::StopTracking() {
  if (geometry == Geometry::Equatorial) return Mount::StopTracking();
  // The loop's rates stay set once it has ended: stop both motors.
  HaltAltAzTracking();
  StopAxisMotor(0);
  StopAxisMotor(1);
  return Ok;
}

int32_t TestMount::MoveAxis(uint32_t axis, double rate) {
  HaltAltAzTracking();
  return Mount::MoveAxis(axis, rate);
}

int32_t TestMount::GotoEquatorial(AnglePair sky) {
  HaltAltAzTracking();
  return Mount::GotoEquatorial(sky);
}

int32_t TestMount::GotoHorizontal(double azimuth, double altitude) {
  HaltAltAzTracking();
  return Mount::GotoHorizontal(azimuth, altitude);
}

int32_t TestMount::GotoAxes(double angle0, double angle1) {
  if (captureGotoAxes) {
    capturedGotoAxes[0] = angle0;
    capturedGotoAxes[1] = angle1;
    ++capturedGotoAxesCalls;
    return Ok;
  }
  HaltAltAzTracking();
  return StartAxisTargetSlew(*this, angle0, angle1);
}

// --- Test controls ----------------------------------------------------------

double TestMount::TrueAngle(uint32_t axis) {
  motors_->ReadPosition(axis);
  return axisPosition[axis];
}

AnglePair TestMount::TrueSky() {
  AnglePair axes{TrueAngle(0), TrueAngle(1)};
  AnglePair sky;
  AxesToSky(&axes, &sky, 1);
  return sky;
}

std::vector<CommandRecord> TestMount::Commands() const {
  std::lock_guard lock(mutex_);
  return {log_->begin(), log_->begin() + static_cast<std::ptrdiff_t>(logSize_)};
}

std::vector<CommandRecord> TestMount::Commands(Command kind) const {
  std::vector<CommandRecord> some;
  for (const CommandRecord& record : Commands()) {
    if (record.command == kind) some.push_back(record);
  }
  return some;
}

size_t TestMount::CommandCount() const {
  std::lock_guard lock(mutex_);
  return logSize_;
}

size_t TestMount::CommandCount(Command kind, uint32_t axis) const {
  std::lock_guard lock(mutex_);
  size_t count = 0;
  for (size_t i = 0; i < logSize_; ++i) {
    if ((*log_)[i].command == kind && (*log_)[i].axis == axis) ++count;
  }
  return count;
}

void TestMount::FailRateCommands(uint32_t axis, uint32_t after, uint32_t count) {
  std::lock_guard lock(mutex_);
  ratesBeforeFailure_[axis] = after;
  rateFailures_[axis] = count;
}

void TestMount::FailPositionReads(uint32_t axis, uint32_t count) {
  std::lock_guard lock(mutex_);
  positionReadFailures_[axis] = count;
}

void TestMount::HoldPositionReads(bool hold) {
  std::lock_guard lock(gateMutex_);
  readsHold_ = hold;
  gateOpened_.notify_all();
}

bool TestMount::SlewFinished() const {
  return axisRunFlag[0] == 0 && axisRunFlag[1] == 0 && slewActive == 0 &&
         workerIdleEvent.IsSignalled();
}

void TestMount::PlaceAxes(double angle0, double angle1) {
  const double angles[AXIS_COUNT] = {angle0, angle1};
  for (uint32_t axis = 0; axis < AXIS_COUNT; ++axis) {
    motors_->Stop(axis);
    motors_->SetPosition(axis, angles[axis]);
  }
}

void TestMount::SetSlewSpeed(double radiansPerSecond) {
  motors_ = std::make_unique<SimulatedMotors>(*this, radiansPerSecond,
                                              AnglePair{TrueAngle(0), TrueAngle(1)});
}

// --- Behind a model number -------------------------------------------------

namespace {

std::atomic<Geometry> modelGeometry[MODEL_COUNT];
std::atomic<int32_t> storedModel[MODEL_COUNT];

template <int32_t model>
std::unique_ptr<Mount> MakeTestMount() {
  return std::make_unique<TestMount>(modelGeometry[model].load(), storedModel[model].load());
}

template <std::size_t... models>
constexpr std::array<MountFactory, MODEL_COUNT> FactoryTable(std::index_sequence<models...>) {
  return {&MakeTestMount<static_cast<int32_t>(models)>...};
}

constexpr std::array<MountFactory, MODEL_COUNT> testFactories =
    FactoryTable(std::make_index_sequence<MODEL_COUNT>());

}  // namespace

ScopedTestModel::ScopedTestModel(int32_t model, Geometry geometry, int32_t storedModelId)
    : model_(model) {
  modelGeometry[model] = geometry;
  storedModel[model] = storedModelId < 0 ? model : storedModelId;
  previous_ = ReplaceModelFactory(model, testFactories[model]);
}

ScopedTestModel::~ScopedTestModel() {
  DisconnectMount();
  ReplaceModelFactory(model_, previous_);
  TestMount::openResult = Ok;
}

TestMount* ConnectedTestMount() { return dynamic_cast<TestMount*>(CurrentMount()); }

uint32_t MountStatus(Mount& mount) {
  uint32_t status = 0;
  mount.GetMountStatus(&status);
  return status;
}

}  // namespace scopemount::testing
