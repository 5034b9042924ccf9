#include "support/fake_mount.h"

namespace scopemount::testing {

std::atomic<int32_t> FakeMount::openResult{Ok};

FakeMount::FakeMount(int32_t model, bool equatorial) {
  modelId = model;
  isEquatorial = equatorial ? 1 : 0;
}

int32_t FakeMount::ReadAxisPosition(uint32_t axis) {
  if (readResult != Ok) return readResult;
  axisPosition[axis] = hardwarePosition[axis].load();
  return Ok;
}

int32_t FakeMount::ReadAxisStatus(uint32_t axis) {
  axisStatus[axis] = hardwareStatus[axis].load();
  return Ok;
}

int32_t FakeMount::SetAxisRate(uint32_t axis, double rate) {
  hardwareStatus[axis] = rate == 0.0 ? AXIS_STOPPED : AXIS_RUNNING | (rate > 0 ? AXIS_POSITIVE : 0);
  return Ok;
}

int32_t FakeMount::StopAxisMotor(uint32_t axis) {
  ++stopCalls;
  hardwareStatus[axis] = AXIS_STOPPED;
  return Ok;
}

int32_t FakeMount::SetAxisPosition(uint32_t axis, double angle) {
  hardwarePosition[axis] = angle;
  axisPosition[axis] = angle;
  return Ok;
}

int32_t FakeMount::OpenMount() { return openResult; }

int32_t FakeMount::GotoAxes(double angle0, double angle1) {
  gotoAxesTarget[0] = angle0;
  gotoAxesTarget[1] = angle1;
  ++gotoAxesCalls;
  return Ok;
}

namespace {

// Factories are plain function pointers, so the model and geometry of the
// mount they make live here.
std::atomic<int32_t> factoryModel{7};
std::atomic<bool> factoryEquatorial{false};

std::unique_ptr<Mount> MakeFake() {
  return std::make_unique<FakeMount>(factoryModel, factoryEquatorial);
}

}  // namespace

ScopedFakeModel::ScopedFakeModel(int32_t model, bool equatorial, int32_t storedModelId)
    : model_(model) {
  factoryModel = storedModelId < 0 ? model : storedModelId;
  factoryEquatorial = equatorial;
  previous_ = ReplaceModelFactory(model, &MakeFake);
}

ScopedFakeModel::~ScopedFakeModel() {
  DisconnectMount();
  ReplaceModelFactory(model_, previous_);
  FakeMount::openResult = Ok;
}

FakeMount* ConnectedFake() { return dynamic_cast<FakeMount*>(CurrentMount()); }

}  // namespace scopemount::testing
