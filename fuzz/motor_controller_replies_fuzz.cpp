// Whatever a motor controller answers (garbage, cut-off, overlong, refused,
// nothing), the opening sequence and the operations after it end with one
// of the layer's result codes and leave finite positions: never a crash,
// a hang or a read past a buffer.
//
// Input: one byte of line settings (bit 0: the line echoes; bit 1: the
// equatorial class), then the replies, each a length byte and that many
// bytes, handed out one per command; when they run out the controller is
// silent. Time runs on a very fast clock, so a missing reply costs nothing.
#include <sys/prctl.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>

#include "instant_device.h"
#include "platform/clock.h"
#include "protocols/motorcontroller/motor_controller_altaz_mount.h"
#include "protocols/motorcontroller/motor_controller_equatorial_mount.h"

using namespace scopemount;

namespace {

testing::ScriptedReplies replies;
bool echo = false;

class ReplayDevice final : public testing::InstantDevice {
 protected:
  void Answer(const uint8_t* bytes, size_t count) override {
    for (size_t i = 0; i < count; ++i) {
      if (echo) Reply({bytes[i]});
      if (bytes[i] == '\r') Reply(replies.Next());
    }
  }
};

bool IsLayerCode(int32_t code) {
  return code == Ok || code == InvalidParameter || code == NoResponseAxis1 ||
         code == NoResponseAxis2;
}

void Check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static testing::InstantDeviceFactory<ReplayDevice> factory;
  static platform::ScaledClock clock(1e9);
  static const bool installed = [] {
    platform::UseSerialDeviceFactory(&factory);
    platform::UseClock(&clock);
    // The layer's pauses become sub-microsecond sleeps: let them be that short.
    prctl(PR_SET_TIMERSLACK, 1UL);
    return true;
  }();
  (void)installed;
  if (size == 0) return 0;
  replies = {data + 1, size - 1};
  echo = (data[0] & 1) != 0;
  const bool equatorial = (data[0] & 2) != 0;
  OwnedMount<MotorControllerMount> mount(
      equatorial ? static_cast<MotorControllerMount*>(new MotorControllerEquatorialMount)
                 : static_cast<MotorControllerMount*>(new MotorControllerAltAzMount));
  Check(IsLayerCode(mount->OpenMount()));
  Check(IsLayerCode(mount->ReadAxisStatus(1)));
  Check(IsLayerCode(mount->SlewAxisTo(0, 1.0)));
  Check(IsLayerCode(mount->SetAxisRate(1, -200 * SIDEREAL_RATE)));
  Check(IsLayerCode(mount->SetAxisPosition(0, 0.5)));
  for (uint32_t axis = 0; axis < AXIS_COUNT; ++axis) {
    Check(IsLayerCode(mount->ReadAxisPosition(axis)));
    Check(!std::isnan(mount->axisPosition[axis]));
  }
  return 0;
}
