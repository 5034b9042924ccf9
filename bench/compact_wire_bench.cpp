// Wire cost of the compact mounts at 4800 baud: the bytes each way and the
// time they take on the line (10 bits a byte) for one GOTO pass, one status
// poll and one tracking cycle, beside the fewest bytes the protocol allows
// for the same work. The mount's own code runs against a board in the same
// process that answers at once, so the CPU time reported is the layer's own
// per operation; the counters carry the wire figures.
//
// What the operations are, as the workers call the layer:
//   GOTO pass: both positions measured, then both axes sent to their targets
//     (the fewest: two position reads and two target commands).
//   status poll: during a GOTO, axis 0's end flag; every second or so also
//     axis 1's position for the standstill test (fewest: the same, as axis 1
//     has no end flag).
//   tracking cycle: aligned, both positions then both rates; not aligned,
//     both rates (fewest: the same commands).
#include <benchmark/benchmark.h>

#include <cstdint>

#include "instant_device.h"
#include "platform/clock.h"
#include "protocols/compact/compact_altaz_mounts.h"
#include "protocols/compact/compact_protocol.h"

namespace {

using namespace scopemount;

constexpr double BITS_PER_BYTE = 10.0;  // 8N1: start, 8 data, stop
constexpr double MS_PER_BYTE = BITS_PER_BYTE * 1000.0 / compact::BAUD_RATE;

testing::LineCounts wire;

// Answers the two reading commands at once: a position, or "GOTO running".
class InstantBoard final : public testing::InstantDevice {
 public:
  InstantBoard() : InstantDevice(&wire) {}

 protected:
  void Answer(const uint8_t* bytes, size_t) override {
    if (bytes[0] == compact::READ_POSITION ||
        bytes[0] == compact::CommandFor(compact::READ_POSITION, 1)) {
      Reply({0x01, 0x23, 0x45});
    } else if (bytes[0] == compact::READ_GOTO_STATUS) {
      Reply({0x00});
    }
  }
};

testing::InstantDeviceFactory<InstantBoard> boards;

OwnedMount<CompactMount> ConnectedMount() {
  platform::UseSerialDeviceFactory(&boards);
  OwnedMount<CompactMount> mount(new CompactAltAzMountSmall);
  mount->OpenMount();
  return mount;
}

// Runs `operation` per iteration and reports its bytes, their wire time and
// the fewest bytes the protocol needs for it.
template <typename Operation>
void MeasureWire(benchmark::State& state, uint32_t fewestBytes, Operation operation) {
  OwnedMount<CompactMount> mount = ConnectedMount();
  wire = {};
  uint64_t runs = 0;
  for (auto _ : state) {
    operation(*mount);
    ++runs;
  }
  const double out = static_cast<double>(wire.written) / static_cast<double>(runs);
  const double in = static_cast<double>(wire.read) / static_cast<double>(runs);
  state.counters["bytes_out"] = out;
  state.counters["bytes_in"] = in;
  state.counters["wire_ms"] = (out + in) * MS_PER_BYTE;
  state.counters["fewest_bytes"] = fewestBytes;
  state.counters["fewest_wire_ms"] = fewestBytes * MS_PER_BYTE;
  mount.reset();
  platform::UseSerialDeviceFactory(nullptr);
}

void BM_GotoPass(benchmark::State& state) {
  // 2 reads (1 out, 3 in each) and 2 targets (4 out each).
  MeasureWire(state, 16, [](CompactMount& mount) {
    mount.ReadAxisPosition(0);
    mount.ReadAxisPosition(1);
    mount.SlewAxisTo(1, 0.5);
    mount.SlewAxisTo(0, 1.0);
  });
}

void BM_StatusPoll(benchmark::State& state) {
  // Axis 0's end flag: 1 out, 1 in.
  MeasureWire(state, 2, [](CompactMount& mount) {
    mount.axisStatus[0] = AXIS_SLEWING | AXIS_HIGH_SPEED;
    mount.axisStatus[1] = AXIS_SLEWING | AXIS_HIGH_SPEED;
    mount.lastAltitudeCheckTick = platform::TickCount();
    mount.ReadAxisStatus(0);
    mount.ReadAxisStatus(1);
  });
}

void BM_StatusPollWithStandstillCheck(benchmark::State& state) {
  // Axis 0's end flag and axis 1's position: 2 out, 4 in.
  MeasureWire(state, 6, [](CompactMount& mount) {
    mount.axisStatus[0] = AXIS_SLEWING | AXIS_HIGH_SPEED;
    mount.axisStatus[1] = AXIS_SLEWING | AXIS_HIGH_SPEED;
    mount.lastAltitudeCheckTick = platform::TickCount() - 2000;
    mount.lastAltitudePosition = -1.0;
    mount.ReadAxisStatus(0);
    mount.ReadAxisStatus(1);
  });
}

void BM_TrackingCycleAligned(benchmark::State& state) {
  // 2 reads and 2 rates (4 out each).
  MeasureWire(state, 16, [](CompactMount& mount) {
    double angle = 0.0;
    mount.GetAxisPosition(0, &angle);
    mount.GetAxisPosition(1, &angle);
    mount.SetAxisRate(0, SIDEREAL_RATE);
    mount.SetAxisRate(1, -SIDEREAL_RATE);
  });
}

void BM_TrackingCycleUnaligned(benchmark::State& state) {
  MeasureWire(state, 8, [](CompactMount& mount) {
    mount.SetAxisRate(0, SIDEREAL_RATE);
    mount.SetAxisRate(1, -SIDEREAL_RATE);
  });
}

BENCHMARK(BM_GotoPass);
BENCHMARK(BM_StatusPoll);
BENCHMARK(BM_StatusPollWithStandstillCheck);
BENCHMARK(BM_TrackingCycleAligned);
BENCHMARK(BM_TrackingCycleUnaligned);

}  // namespace
