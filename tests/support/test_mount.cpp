#include "support/test_mount.h"

#include <cmath>
#include <utility>

#include "interface/messages.h"
#include "mount/motion_workers.h"
#include "platform/clock.h"

namespace scopemount::testing {

std::atomic<int> TestMount::liveCount{0};

TestMount::TestMount(Geometry geometryKind, int32_t model)
    : geometry(geometryKind), log_(std::make_unique<std::array<CommandRecord, LOG_CAPACITY>>()) {
  modelId = model;
  isEquatorial = geometry == Geometry::Equatorial ? 1 : 0;
  const uint32_t now = platform::TickCount();
  for (Axis& axis : axes_) axis.startTick = now;
  TestMount::ResetTransform();
  ++liveCount;
}

TestMount::~TestMount() { --liveCount; }

// --- Simulated axes ------------------------------------------------------

double TestMount::AngleAt(const Axis& axis, uint32_t now) const {
  const double seconds = static_cast<double>(now - axis.startTick) / 1000.0;
  switch (axis.motion) {
    case Motion::Standing:
      break;
    case Motion::Running:
      return axis.start + axis.rate * seconds;
    case Motion::Slewing: {
      const double travelled = slewSpeed * seconds;
      const double distance = axis.target - axis.start;
      if (travelled >= std::fabs(distance)) return axis.target;
      return axis.start + (distance > 0.0 ? travelled : -travelled);
    }
  }
  return axis.start;
}

void TestMount::Rebase(Axis& axis, uint32_t now) {
  axis.start = AngleAt(axis, now);
  axis.startTick = now;
  if (axis.motion == Motion::Slewing && axis.start == axis.target) axis.motion = Motion::Standing;
}

uint32_t TestMount::StatusOf(const Axis& axis) const {
  switch (axis.motion) {
    case Motion::Standing:
      break;
    case Motion::Running:
      return AXIS_RUNNING | (axis.rate > 0.0 ? AXIS_POSITIVE : 0);
    case Motion::Slewing:
      return AXIS_SLEWING | (axis.target > axis.start ? AXIS_POSITIVE : 0);
  }
  return AXIS_STOPPED;
}

int32_t TestMount::NoAnswer(uint32_t axis) const {
  return axis == 0 ? NoResponseAxis1 : NoResponseAxis2;
}

void TestMount::Record(Command command, uint32_t axis, double value, uint32_t tick,
                       bool failed) {
  if (logSize_ < LOG_CAPACITY) (*log_)[logSize_++] = {command, axis, value, tick, failed};
}

void TestMount::HoldPositionReads(bool hold) {
  std::lock_guard lock(gateMutex_);
  readsHold_ = hold;
  gateOpened_.notify_all();
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
  std::lock_guard lock(mutex_);
  if (positionReadFailures_[axis] > 0) {
    --positionReadFailures_[axis];
    return NoAnswer(axis);
  }
  Rebase(axes_[axis], platform::TickCount());
  axisPosition[axis] = axes_[axis].start;
  return Ok;
}

int32_t TestMount::ReadAxisStatus(uint32_t axis) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  if (silent_[axis]) return NoAnswer(axis);
  ++statusReads;
  std::lock_guard lock(mutex_);
  Rebase(axes_[axis], platform::TickCount());
  axisStatus[axis] = StatusOf(axes_[axis]);
  return Ok;
}

int32_t TestMount::PrepareSlew() {
  {
    std::lock_guard lock(mutex_);
    Record(Command::PrepareSlew, 0, 0.0, platform::TickCount());
  }
  const uint32_t delay = prepareSlewDelayMs;
  if (delay != 0) platform::Sleep(delay);
  return prepareSlewResult;
}

int32_t TestMount::SetAxisRate(uint32_t axis, double rate) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  if (silent_[axis]) return NoAnswer(axis);
  std::lock_guard lock(mutex_);
  const uint32_t now = platform::TickCount();
  if (ratesBeforeFailure_[axis] > 0) {
    --ratesBeforeFailure_[axis];
  } else if (rateFailures_[axis] > 0) {
    --rateFailures_[axis];
    Record(Command::SetRate, axis, rate, now, /*failed=*/true);
    return NoAnswer(axis);
  }
  Record(Command::SetRate, axis, rate, now);
  Axis& a = axes_[axis];
  Rebase(a, now);
  a.rate = rate;
  a.motion = rate == 0.0 ? Motion::Standing : Motion::Running;
  if (rate != 0.0) axisDirection[axis] = rate > 0.0 ? 1 : 0;
  axisStatus[axis] = StatusOf(a);
  return Ok;
}

int32_t TestMount::SlewAxisTo(uint32_t axis, double angle) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  if (silent_[axis]) return NoAnswer(axis);
  std::lock_guard lock(mutex_);
  const uint32_t now = platform::TickCount();
  Record(Command::SlewTo, axis, angle, now);
  Axis& a = axes_[axis];
  Rebase(a, now);
  a.target = angle;
  a.motion = a.start == angle ? Motion::Standing : Motion::Slewing;
  axisStatus[axis] = StatusOf(a);
  return Ok;
}

int32_t TestMount::StopAxisMotor(uint32_t axis) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  if (silent_[axis]) return NoAnswer(axis);
  std::lock_guard lock(mutex_);
  const uint32_t now = platform::TickCount();
  Record(Command::Stop, axis, 0.0, now);
  Rebase(axes_[axis], now);
  axes_[axis].motion = Motion::Standing;
  axisStatus[axis] = AXIS_STOPPED;
  return Ok;
}

int32_t TestMount::SetAxisPosition(uint32_t axis, double angle) {
  if (!IsValidAxis(axis)) return InvalidParameter;
  if (silent_[axis]) return NoAnswer(axis);
  std::lock_guard lock(mutex_);
  const uint32_t now = platform::TickCount();
  Record(Command::SetPosition, axis, angle, now);
  Rebase(axes_[axis], now);
  axes_[axis].start = angle;
  axisPosition[axis] = angle;
  return Ok;
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
  Matrix3 axesToSky = skyToAxes;
  axesToSky.Invert();
  pointing.Update([&](PointingSnapshot& model) {
    model.skyToAxes = skyToAxes;
    model.axesToSky = axesToSky;
  });
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
  HaltAltAzTracking();
  return StartAxisTargetSlew(*this, angle0, angle1);
}

// --- Test controls ----------------------------------------------------------

double TestMount::TrueAngle(uint32_t axis) const {
  std::lock_guard lock(mutex_);
  return AngleAt(axes_[axis], platform::TickCount());
}

std::vector<CommandRecord> TestMount::Commands() const {
  std::lock_guard lock(mutex_);
  return {log_->begin(), log_->begin() + static_cast<std::ptrdiff_t>(logSize_)};
}

std::vector<CommandRecord> TestMount::Commands(Command kind) const {
  std::vector<CommandRecord> all = Commands();
  std::vector<CommandRecord> some;
  for (const CommandRecord& record : all) {
    if (record.command == kind) some.push_back(record);
  }
  return some;
}

size_t TestMount::CommandCount() const {
  std::lock_guard lock(mutex_);
  return logSize_;
}

AnglePair TestMount::TrueSky() {
  AnglePair axes{TrueAngle(0), TrueAngle(1)};
  AnglePair sky;
  AxesToSky(&axes, &sky, 1);
  return sky;
}

bool TestMount::SlewFinished() const {
  return axisRunFlag[0] == 0 && axisRunFlag[1] == 0 && slewActive == 0 &&
         workerIdleEvent.IsSignalled();
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

size_t TestMount::CommandCount(Command kind, uint32_t axis) const {
  std::lock_guard lock(mutex_);
  size_t count = 0;
  for (size_t i = 0; i < logSize_; ++i) {
    if ((*log_)[i].command == kind && (*log_)[i].axis == axis) ++count;
  }
  return count;
}

void TestMount::PlaceAxes(double angle0, double angle1) {
  std::lock_guard lock(mutex_);
  const uint32_t now = platform::TickCount();
  const double angles[AXIS_COUNT] = {angle0, angle1};
  for (uint32_t axis = 0; axis < AXIS_COUNT; ++axis) {
    axes_[axis] = Axis{};
    axes_[axis].start = angles[axis];
    axes_[axis].startTick = now;
    axisPosition[axis] = angles[axis];
    axisStatus[axis] = AXIS_STOPPED;
  }
}

// --- Behind a model number -------------------------------------------------

namespace {

std::atomic<Geometry> modelGeometry[MODEL_COUNT];

template <int32_t model>
std::unique_ptr<Mount> MakeTestMount() {
  return std::make_unique<TestMount>(modelGeometry[model].load(), model);
}

template <std::size_t... models>
constexpr std::array<MountFactory, MODEL_COUNT> FactoryTable(std::index_sequence<models...>) {
  return {&MakeTestMount<static_cast<int32_t>(models)>...};
}

constexpr std::array<MountFactory, MODEL_COUNT> testFactories =
    FactoryTable(std::make_index_sequence<MODEL_COUNT>());

}  // namespace

ScopedTestModel::ScopedTestModel(int32_t model, Geometry geometry) : model_(model) {
  modelGeometry[model] = geometry;
  previous_ = ReplaceModelFactory(model, testFactories[model]);
}

ScopedTestModel::~ScopedTestModel() {
  DisconnectMount();
  ReplaceModelFactory(model_, previous_);
}

TestMount* ConnectedTestMount() { return dynamic_cast<TestMount*>(CurrentMount()); }

uint32_t MountStatus(Mount& mount) {
  uint32_t status = 0;
  mount.GetMountStatus(&status);
  return status;
}

}  // namespace scopemount::testing
