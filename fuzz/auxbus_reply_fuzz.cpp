// Whatever an AUX bus sends back, the reply reader must neither crash nor
// hang, and a command must end in Ok or the axis's no-response code with
// the position it read, if any, a real angle of one turn.
//
// The input is a series of replies, each a length byte and that many bytes;
// every command the mount sends gets its echo back, then the next reply.
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <memory>

#include "platform/clock.h"
#include "platform/serial_device.h"
#include "protocols/auxbus/aux_mounts.h"

using namespace scopemount;

namespace {

// The replies still to come, and the bytes on their way to the host.
struct Wire {
  const uint8_t* input = nullptr;
  size_t left = 0;
  std::deque<uint8_t> toHost;

  void NextReply() {
    if (left == 0) return;
    size_t count = input[0];
    ++input;
    --left;
    if (count > left) count = left;
    toHost.insert(toHost.end(), input, input + count);
    input += count;
    left -= count;
  }
};

Wire wire;

class FuzzDevice final : public platform::SerialDevice {
 public:
  bool SetBaudRate(uint32_t) override { return true; }
  bool WaitReadable(uint32_t) override { return !wire.toHost.empty(); }
  bool WaitWritable(uint32_t) override { return true; }
  long ReadAvailable(uint8_t* buffer, size_t size) override {
    size_t moved = 0;
    while (moved < size && !wire.toHost.empty()) {
      buffer[moved++] = wire.toHost.front();
      wire.toHost.pop_front();
    }
    return static_cast<long>(moved);
  }
  long WriteAvailable(const uint8_t* bytes, size_t count) override {
    wire.toHost.insert(wire.toHost.end(), bytes, bytes + count);  // the bus's echo
    wire.NextReply();
    return static_cast<long>(count);
  }
  void Purge() override { wire.toHost.clear(); }
  void SetRts(bool) override {}
  bool IsCtsHigh() override { return false; }
};

class FuzzFactory final : public platform::SerialDeviceFactory {
 public:
  std::unique_ptr<platform::SerialDevice> Open(const char*) override {
    return std::make_unique<FuzzDevice>();
  }
};

// Time-outs pass at once: a missing reply costs nothing.
platform::ScaledClock instantClock(1e9);
FuzzFactory factory;

AuxEquatorialMount& FuzzedMount() {
  static AuxEquatorialMount* mount = [] {
    platform::UseClock(&instantClock);
    platform::UseSerialDeviceFactory(&factory);
    return new AuxEquatorialMount();
  }();
  return *mount;
}

void Check(int32_t result, uint32_t axis) {
  if (result != Ok && result != (axis == 0 ? NoResponseAxis1 : NoResponseAxis2)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  AuxEquatorialMount& mount = FuzzedMount();
  wire = Wire{data, size, {}};
  for (uint32_t axis = 0; axis < AXIS_COUNT; ++axis) {
    const double before = mount.axisPosition[axis];
    const int32_t read = mount.AuxBusMount::ReadAxisPosition(axis);
    Check(read, axis);
    const double angle = mount.axisPosition[axis];
    if (read == Ok && !(angle >= -PI && angle < PI)) std::abort();
    if (read != Ok && angle != before) std::abort();
    mount.axisStatus[axis] = AXIS_SLEWING;
    Check(mount.ReadAxisStatus(axis), axis);
  }
  const int32_t opened = mount.OpenMount();
  if (opened != Ok && opened != NoResponseAxis1 && opened != NoResponseAxis2) std::abort();
  return 0;
}
