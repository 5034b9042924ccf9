// What the AUX-bus layer puts on the wire for the steps a session repeats:
// one GOTO pass, one status poll and one Alt/Az tracking cycle, each beside
// the fewest commands that step needs. Counters per iteration:
//   sent      bytes the library transmits
//   echo      the same bytes read back off the shared wire
//   reply     bytes the controllers answer
//   wire_ms   time the bus is busy at 19200 baud, 10 bits a byte (the
//             echo is the transmission itself, so it adds no wire time)
// The time column is the library's own processing, against an instant bus.
#include <benchmark/benchmark.h>

#include <cstdint>

#include "instant_device.h"
#include "protocols/auxbus/aux_mounts.h"

namespace {

using namespace scopemount;
using namespace scopemount::auxbus;

constexpr double BITS_PER_BYTE = 10.0;

struct Traffic {
  uint64_t sent = 0;
  uint64_t echo = 0;
  uint64_t reply = 0;
};

Traffic traffic;

// Two controllers that answer at once: the echo, then a well-formed reply.
class InstantBus final : public testing::InstantDevice {
 protected:
  void Answer(const uint8_t* bytes, size_t count) override {
    traffic.sent += count;
    traffic.echo += count;
    Reply(bytes, count);
    uint8_t data[3] = {0x12, 0x34, 0x56};
    size_t dataCount = 0;
    const uint8_t command = bytes[COMMAND_OFFSET];
    if (command == CMD_GET_POSITION) dataCount = 3;
    if (command == CMD_SLEW_DONE) dataCount = 1;
    if (command == CMD_GET_VERSION) dataCount = 2;
    uint8_t reply[MAX_PACKET_SIZE];
    const size_t size = BuildPacket(bytes[DESTINATION_OFFSET], HOST_ADDRESS, command, data,
                                    dataCount, reply);
    traffic.reply += size;
    Reply(reply, size);
  }
};

AuxAltAzMount& BenchMount() {
  static testing::InstantDeviceFactory<InstantBus> factory;
  static AuxAltAzMount* mount = [] {
    platform::UseSerialDeviceFactory(&factory);
    auto* opened = new AuxAltAzMount();
    opened->noHandshake = 1;
    return opened;
  }();
  return *mount;
}

template <typename Step>
void MeasureStep(benchmark::State& state, Step step) {
  AuxAltAzMount& mount = BenchMount();
  traffic = {};
  for (auto _ : state) step(mount);
  const double n = static_cast<double>(state.iterations());
  state.counters["sent"] = static_cast<double>(traffic.sent) / n;
  state.counters["echo"] = static_cast<double>(traffic.echo) / n;
  state.counters["reply"] = static_cast<double>(traffic.reply) / n;
  state.counters["wire_ms"] = static_cast<double>(traffic.sent + traffic.reply) * BITS_PER_BYTE /
                              AUX_BAUD_RATE * 1000.0 / n;
}

// A pass as the slew worker runs it: both positions, then each axis slewed
// (which reads its position again and sets the approach before the GOTO).
void BM_GotoPass(benchmark::State& state) {
  MeasureStep(state, [](AuxAltAzMount& m) {
    m.ReadAxisPosition(0);
    m.ReadAxisPosition(1);
    m.SlewAxisTo(1, 1.0);
    m.SlewAxisTo(0, -1.0);
  });
}

// The fewest: both positions and one GOTO per axis.
void BM_GotoPassFewest(benchmark::State& state) {
  const uint8_t target[3] = {0x20, 0, 0};
  MeasureStep(state, [&](AuxAltAzMount& m) {
    m.SendAuxCommand(0, CMD_GET_POSITION, nullptr, 0, nullptr);
    m.SendAuxCommand(1, CMD_GET_POSITION, nullptr, 0, nullptr);
    m.SendAuxCommand(1, CMD_GOTO_FAST, target, 3, nullptr);
    m.SendAuxCommand(0, CMD_GOTO_FAST, target, 3, nullptr);
  });
}

// Both axes asked whether their slew has ended (every 200 ms of a slew).
void BM_StatusPoll(benchmark::State& state) {
  MeasureStep(state, [](AuxAltAzMount& m) {
    m.axisStatus[0] = AXIS_SLEWING;
    m.axisStatus[1] = AXIS_SLEWING;
    m.ReadAxisStatus(0);
    m.ReadAxisStatus(1);
  });
}

void BM_StatusPollFewest(benchmark::State& state) {
  MeasureStep(state, [](AuxAltAzMount& m) {
    m.SendAuxCommand(0, CMD_SLEW_DONE, nullptr, 0, nullptr);
    m.SendAuxCommand(1, CMD_SLEW_DONE, nullptr, 0, nullptr);
  });
}

// One cycle of the Alt/Az tracking loop: both positions read, both rates set.
void BM_TrackingCycle(benchmark::State& state) {
  MeasureStep(state, [](AuxAltAzMount& m) {
    double angle = 0.0;
    m.GetAxisPosition(0, &angle);
    m.GetAxisPosition(1, &angle);
    m.SetAxisRate(0, SIDEREAL_RATE);
    m.SetAxisRate(1, -SIDEREAL_RATE / 2.0);
  });
}

// The fewest: the two rates alone, for a loop that trusted its own model.
void BM_TrackingCycleFewest(benchmark::State& state) {
  const uint8_t rate[3] = {0x00, 0x3C, 0x00};
  MeasureStep(state, [&](AuxAltAzMount& m) {
    m.SendAuxCommand(0, CMD_RATE_POSITIVE, rate, 3, nullptr);
    m.SendAuxCommand(1, CMD_RATE_NEGATIVE, rate, 3, nullptr);
  });
}

BENCHMARK(BM_GotoPass);
BENCHMARK(BM_GotoPassFewest);
BENCHMARK(BM_StatusPoll);
BENCHMARK(BM_StatusPollFewest);
BENCHMARK(BM_TrackingCycle);
BENCHMARK(BM_TrackingCycleFewest);

}  // namespace
