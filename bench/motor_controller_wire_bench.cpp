// What the motor-controller protocol costs on the wire: the bytes (both
// ways) and their time at 9600 baud (10 bits a byte) of one GOTO pass, one
// status poll and one Alt/Az tracking cycle, beside the fewest bytes the
// protocol needs for the same work.
//
// The fewest: a GOTO pass reads both positions (j) and sends G, H and J per
// axis (the brake steps never change, so M once at opening would do, and
// the layer's own re-read of the position inside each GOTO is not needed);
// a status poll is one f per axis; a tracking cycle on running axes is I
// and J per axis (the layer's f before each rate tells it nothing it could
// not have kept).
#include <benchmark/benchmark.h>

#include "instant_device.h"
#include "protocols/motorcontroller/motor_controller_altaz_mount.h"

using namespace scopemount;

namespace {

constexpr double BYTE_MS_AT_9600 = 10.0 * 1000.0 / 9600.0;

// Frame lengths: command with no data, with the two mode characters and
// with a number; replies with no data, three status digits and a number.
constexpr int COMMAND = 4, COMMAND_MODE = 6, COMMAND_NUMBER = 10;
constexpr int REPLY = 2, REPLY_STATUS = 5, REPLY_NUMBER = 8;
constexpr int READ_POSITION = COMMAND + REPLY_NUMBER;
constexpr int FEWEST_GOTO_PASS =
    2 * READ_POSITION + 2 * ((COMMAND_MODE + REPLY) + (COMMAND_NUMBER + REPLY) + (COMMAND + REPLY));
constexpr int FEWEST_STATUS_POLL = 2 * (COMMAND + REPLY_STATUS);
constexpr int FEWEST_TRACKING_CYCLE = 2 * ((COMMAND_NUMBER + REPLY) + (COMMAND + REPLY));

const char* statusReply = "=101\r";

testing::LineCounts line;

// Answers every command at once from canned replies.
class CountingController final : public testing::InstantDevice {
 public:
  CountingController() : InstantDevice(&line) {}

 protected:
  void Answer(const uint8_t* bytes, size_t count) override {
    if (count < 2 || bytes[0] != ':') return;
    const char* reply = "=\r";
    switch (bytes[1]) {
      case 'e': reply = "=021004\r"; break;
      case 'a': reply = "=40420F\r"; break;
      case 'b': reply = "=50C300\r"; break;
      case 'g': reply = "=10\r"; break;
      case 's': reply = "=A86100\r"; break;
      case 'j': reply = "=000080\r"; break;
      case 'f': reply = statusReply; break;
      default: break;
    }
    Reply(reply);
  }
};

OwnedMount<MotorControllerAltAzMount> OpenedMount() {
  static testing::InstantDeviceFactory<CountingController> factory;
  platform::UseSerialDeviceFactory(&factory);
  OwnedMount<MotorControllerAltAzMount> mount(new MotorControllerAltAzMount);
  mount->OpenMount();
  return mount;
}

template <typename Work>
void MeasureWire(benchmark::State& state, int fewest, Work&& work) {
  OwnedMount<MotorControllerAltAzMount> mount = OpenedMount();
  size_t bytes = 0;
  for (auto _ : state) {
    line = {};
    work(*mount);
    bytes = line.written + line.read;
  }
  state.counters["bytes"] = static_cast<double>(bytes);
  state.counters["wire_ms"] = bytes * BYTE_MS_AT_9600;
  state.counters["fewest_bytes"] = fewest;
  state.counters["ratio"] = static_cast<double>(bytes) / fewest;
}

void GotoPass(benchmark::State& state) {
  statusReply = "=101\r";
  MeasureWire(state, FEWEST_GOTO_PASS, [](MotorControllerAltAzMount& mount) {
    double p0 = 0.0, p1 = 0.0;
    mount.GetAxisPosition(0, &p0);
    mount.GetAxisPosition(1, &p1);
    mount.SlewAxisTo(0, p0 + 0.5);
    mount.SlewAxisTo(1, p1 + 0.3);
  });
}

void StatusPoll(benchmark::State& state) {
  statusReply = "=101\r";
  MeasureWire(state, FEWEST_STATUS_POLL, [](MotorControllerAltAzMount& mount) {
    uint32_t status = 0;
    mount.GetMountStatus(&status);
  });
}

void TrackingCycle(benchmark::State& state) {
  statusReply = "=111\r";  // both axes already running at a low rate
  MeasureWire(state, FEWEST_TRACKING_CYCLE, [](MotorControllerAltAzMount& mount) {
    mount.SetAxisRate(0, 0.9 * SIDEREAL_RATE);
    mount.SetAxisRate(1, 0.4 * SIDEREAL_RATE);
  });
}

}  // namespace

BENCHMARK(GotoPass);
BENCHMARK(StatusPoll);
BENCHMARK(TrackingCycle);
