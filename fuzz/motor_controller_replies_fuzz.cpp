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
#include <deque>
#include <memory>

#include "platform/clock.h"
#include "platform/serial_device.h"
#include "protocols/motorcontroller/motor_controller_altaz_mount.h"
#include "protocols/motorcontroller/motor_controller_equatorial_mount.h"

using namespace scopemount;

namespace {

struct Replies {
  const uint8_t* data = nullptr;
  size_t size = 0;
  bool echo = false;
};
Replies replies;

class ReplayDevice final : public platform::SerialDevice {
 public:
  bool SetBaudRate(uint32_t) override { return true; }
  bool WaitReadable(uint32_t) override { return !incoming_.empty(); }
  bool WaitWritable(uint32_t) override { return true; }
  long ReadAvailable(uint8_t* buffer, size_t size) override {
    size_t n = 0;
    for (; n < size && !incoming_.empty(); ++n) {
      buffer[n] = incoming_.front();
      incoming_.pop_front();
    }
    return static_cast<long>(n);
  }
  long WriteAvailable(const uint8_t* bytes, size_t count) override {
    for (size_t i = 0; i < count; ++i) {
      if (replies.echo) incoming_.push_back(bytes[i]);
      if (bytes[i] == '\r') NextReply();
    }
    return static_cast<long>(count);
  }
  void Purge() override { incoming_.clear(); }
  void SetRts(bool) override {}
  bool IsCtsHigh() override { return false; }

 private:
  void NextReply() {
    if (replies.size == 0) return;
    size_t length = replies.data[0];
    ++replies.data;
    --replies.size;
    if (length > replies.size) length = replies.size;
    incoming_.insert(incoming_.end(), replies.data, replies.data + length);
    replies.data += length;
    replies.size -= length;
  }
  std::deque<uint8_t> incoming_;
};

class ReplayFactory final : public platform::SerialDeviceFactory {
 public:
  std::unique_ptr<platform::SerialDevice> Open(const char*) override {
    return std::make_unique<ReplayDevice>();
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
  static ReplayFactory factory;
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
  replies = {data + 1, size - 1, (data[0] & 1) != 0};
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
