// Whatever an AUX bus sends back, the reply reader must neither crash nor
// hang, and a command must end in Ok or the axis's no-response code with
// the position it read, if any, a real angle of one turn.
//
// The input is a series of replies, each a length byte and that many bytes;
// every command the mount sends gets its echo back, then the next reply.
#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "instant_device.h"
#include "platform/clock.h"
#include "protocols/auxbus/aux_mounts.h"

using namespace scopemount;

namespace {

testing::ScriptedReplies replies;

class FuzzDevice final : public testing::InstantDevice {
 protected:
  void Answer(const uint8_t* bytes, size_t count) override {
    Reply(bytes, count);  // the bus's echo
    Reply(replies.Next());
  }
};

// Time-outs pass at once: a missing reply costs nothing.
platform::ScaledClock instantClock(1e9);
testing::InstantDeviceFactory<FuzzDevice> factory;

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
  replies = {data, size};
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
