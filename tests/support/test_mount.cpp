#include "support/test_mount.h"

#include <cmath>
#include <utility>

#include "interface/messages.h"
#include "platform/clock.h"

namespace scopemount::testing {

std::atomic<int> TestMount::liveCount{0};

TestMount::TestMount(Geometry geometryKind, int32_t model)
    : geometry(geometryKind),
      motors_(std::make_unique<SimulatedMotors>(*this, DEFAULT_SLEW_SPEED, AnglePair{0.0, 0.0})),
      log_(std::make_unique<std::array<CommandRecord, LOG_CAPACITY>>()) {
  modelId = model >= 0 ? model : Equatorial() ? 6 : 7;
  isEquatorial = Equatorial() ? 1 : 0;
  TestMount::ResetTransform();
  ++liveCount;
}

// The Alt/Az loop calls this mount's motors: it ends while they exist.
TestMount::~TestMount() {
  HaltTracking();
  --liveCount;
}

// --- Hardware ----------------------------------------------------------------

int32_t TestMount::NoAnswer(uint32_t axis) const {
  return axis == 0 ? NoResponseAxis1 : NoResponseAxis2;
}

bool TestMount::Answers(Command command, uint32_t axis, double value) {
  if (silent_[axis]) return false;
  std::lock_guard lock(mutex_);
  Record(command, axis, value, false);
  return true;
}

void TestMount::Record(Command command, uint32_t axis, double value, bool failed) {
  if (logSize_ < LOG_CAPACITY) {
    (*log_)[logSize_++] = {command, axis, value, platform::TickCount(), failed};
  }
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
      Record(Command::SetRate, axis, rate, true);
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

int32_t TestMount::GotoAxes(double angle0, double angle1) {
  if (captureGotoAxes) {
    capturedGotoAxes[0] = angle0;
    capturedGotoAxes[1] = angle1;
    ++capturedGotoAxesCalls;
    return Ok;
  }
  return Equatorial() ? EquatorialMount::GotoAxes(angle0, angle1)
                      : AltAzMount::GotoAxes(angle0, angle1);
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

std::vector<CommandRecord> TestMount::Commands(Command kind, uint32_t axis, size_t from) const {
  const std::vector<CommandRecord> all = Commands();
  std::vector<CommandRecord> some;
  for (size_t i = from; i < all.size(); ++i) {
    if (all[i].command == kind && (axis == ANY_AXIS || all[i].axis == axis)) {
      some.push_back(all[i]);
    }
  }
  return some;
}

std::vector<Command> TestMount::KindsSince(size_t from) const {
  const std::vector<CommandRecord> all = Commands();
  std::vector<Command> kinds;
  for (size_t i = from; i < all.size(); ++i) kinds.push_back(all[i].command);
  return kinds;
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
}

TestMount* ConnectedTestMount() { return dynamic_cast<TestMount*>(CurrentMount()); }

uint32_t MountStatus(Mount& mount) {
  uint32_t status = 0;
  mount.GetMountStatus(&status);
  return status;
}

}  // namespace scopemount::testing
