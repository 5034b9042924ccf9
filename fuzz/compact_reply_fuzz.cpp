// The compact board's replies are raw bytes with no framing or checksum:
// whatever comes back (too few, too many, noise) must never crash the
// reply reader or the operations that decode it, and every position it
// yields must be a finite angle in (-pi, pi].
//
// Input: one byte choosing the mount size, then the bytes the board sends,
// handed out as the reads ask for them; when they run out the line reads as
// hung up, so a missing reply fails at once instead of waiting.
#include <sys/prctl.h>

#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "celestial/angles.h"
#include "platform/clock.h"
#include "platform/serial_device.h"
#include "protocols/compact/compact_altaz_mounts.h"

using namespace scopemount;

namespace {

struct Input {
  const uint8_t* data = nullptr;
  size_t size = 0;
};
Input input;

class FuzzedBoard final : public platform::SerialDevice {
 public:
  bool SetBaudRate(uint32_t) override { return true; }
  bool WaitReadable(uint32_t) override { return true; }
  bool WaitWritable(uint32_t) override { return true; }
  long ReadAvailable(uint8_t* buffer, size_t size) override {
    if (input.size == 0) return platform::SERIAL_IO_FAILED;
    const size_t moved = size < input.size ? size : input.size;
    for (size_t i = 0; i < moved; ++i) buffer[i] = input.data[i];
    input.data += moved;
    input.size -= moved;
    return static_cast<long>(moved);
  }
  long WriteAvailable(const uint8_t*, size_t count) override { return static_cast<long>(count); }
  void Purge() override {}
  void SetRts(bool) override {}
  bool IsCtsHigh() override { return false; }
};

class FuzzedBoards final : public platform::SerialDeviceFactory {
 public:
  std::unique_ptr<platform::SerialDevice> Open(const char*) override {
    return std::make_unique<FuzzedBoard>();
  }
};

// OpenMount's short pause costs nothing on this clock.
platform::ScaledClock fastClock(1e6);
FuzzedBoards boards;

void CheckPosition(Mount& mount, uint32_t axis, int32_t result) {
  if (result != Ok) return;
  const double angle = mount.axisPosition[axis];
  if (!std::isfinite(angle) || angle > PI || angle < -PI) std::abort();
}

void CheckResult(int32_t result) {
  if (result != Ok && result != NoResponseAxis1 && result != NoResponseAxis2) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 1) return 0;
  // The pause is nanoseconds on this clock; the kernel's default slack
  // would stretch it to tens of microseconds.
  static const bool slackSet = prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL) == 0;
  (void)slackSet;
  platform::UseClock(&fastClock);
  platform::UseSerialDeviceFactory(&boards);
  input = {data + 1, size - 1};
  OwnedMount<CompactMount> mount;
  if ((data[0] & 1) == 0) {
    mount.reset(new CompactAltAzMountSmall);
  } else {
    mount.reset(new CompactAltAzMountLarge);
  }
  CheckResult(mount->OpenMount());
  for (uint32_t axis = 0; axis < AXIS_COUNT; ++axis) {
    CheckPosition(*mount, axis, mount->ReadAxisPosition(axis));
  }
  CheckResult(mount->SetAxisPosition(0, 2.5));
  CheckPosition(*mount, 0, mount->ReadAxisPosition(0));
  for (uint32_t axis = 0; axis < AXIS_COUNT; ++axis) {
    CheckResult(mount->SlewAxisTo(axis, -1.0));
    for (int poll = 0; poll < 3; ++poll) {
      mount->lastAltitudeCheckTick = platform::TickCount() - 2000;
      CheckResult(mount->ReadAxisStatus(axis));
      const uint32_t status = mount->axisStatus[axis];
      if (status != (AXIS_SLEWING | AXIS_HIGH_SPEED) && status != AXIS_HIGH_SPEED) std::abort();
    }
    CheckResult(mount->StopAxisMotor(axis));
  }
  mount.reset();
  platform::UseSerialDeviceFactory(nullptr);
  platform::UseClock(nullptr);
  return 0;
}
