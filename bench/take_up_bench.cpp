// What a backlash take-up costs the processor, and how late it ends.
//
// Each case reverses a slow axis with a 2 s take-up on the real clock: the
// axis-motion worker (a manual move), the equatorial tracking worker and
// the Alt/Az tracking loop. Counters: the process's CPU time during the
// take-up as a share of one core (cpu_pct; the benchmark thread itself only
// sleeps), and how far after its 2000 ms the take-up stopped the axis
// (late_ms, from the test mount's command log, 1 ms resolution).
#include <benchmark/benchmark.h>

#include <time.h>

#include <chrono>
#include <thread>

#include "mount/tracking_workers.h"
#include "platform/clock.h"
// The bench programs link the library only; the test mount and the fast
// clock are compiled in here.
#include "support/fast_clock.cpp"
#include "support/test_mount.cpp"

namespace scopemount {
namespace {

using testing::Command;
using testing::CommandRecord;
using testing::Geometry;
using testing::TestMount;

constexpr uint32_t TAKE_UP_MS = 2000;
constexpr double LATITUDE = 0.6;
// The bench thread sleeps past the take-up by this much before it looks.
constexpr auto AFTER_TAKE_UP = std::chrono::milliseconds(TAKE_UP_MS + 150);

enum class Case { AxisMotion, EquatorialTracking, AltAzLoop };

double ProcessCpuSeconds() {
  timespec now{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

// A mount whose axis 0 last ran the way the case's slow rate does not.
OwnedMount<TestMount> ReversingMount(Case which) {
  const Geometry geometry = which == Case::AltAzLoop ? Geometry::AltAz : Geometry::Equatorial;
  OwnedMount<TestMount> mount(new TestMount(geometry, geometry == Geometry::AltAz ? 7 : 6));
  mount->SetSite(LATITUDE, 0);
  mount->PlaceAxes(0.0, 0.0);
  mount->backlashTime[0] = TAKE_UP_MS;
  // The manual move runs negative; tracking and the unaligned loop at this
  // place run axis 0 positive.
  mount->axisDirection[0] = which == Case::AxisMotion ? 1 : 0;
  mount->axisDirection[1] = 1;
  return mount;
}

void Begin(TestMount& mount, Case which) {
  if (which == Case::AxisMotion) {
    mount.MoveAxis(0, -SIDEREAL_RATE);
  } else {
    mount.SetTracking(1);
  }
}

// Milliseconds from the take-up's rate command to the stop that ends it,
// or a negative value when the log shows no complete take-up.
double TakeUpLength(const TestMount& mount) {
  const double takeUpRate = mount.backlashRate;
  uint32_t started = 0;
  bool running = false;
  for (const CommandRecord& c : mount.Commands()) {
    if (c.axis != 0) continue;
    if (c.command == Command::SetRate && (c.value == takeUpRate || c.value == -takeUpRate)) {
      started = c.tick;
      running = true;
    } else if (running && c.command == Command::Stop) {
      return static_cast<double>(c.tick - started);
    }
  }
  return -1.0;
}

void TakeUp(benchmark::State& state, Case which) {
  double cpuShare = 0.0;
  double late = 0.0;
  for (auto _ : state) {
    OwnedMount<TestMount> mount = ReversingMount(which);
    const double cpuBefore = ProcessCpuSeconds();
    const auto wallBefore = std::chrono::steady_clock::now();
    Begin(*mount, which);
    std::this_thread::sleep_for(AFTER_TAKE_UP);
    const double cpu = ProcessCpuSeconds() - cpuBefore;
    const std::chrono::duration<double> wall = std::chrono::steady_clock::now() - wallBefore;
    const double length = TakeUpLength(*mount);
    if (length < 0.0) {
      state.SkipWithError("no take-up seen");
      return;
    }
    cpuShare += 100.0 * cpu / wall.count();
    late += length - TAKE_UP_MS;
  }
  const double runs = static_cast<double>(state.iterations());
  state.counters["cpu_pct"] = cpuShare / runs;
  state.counters["late_ms"] = late / runs;
}

BENCHMARK_CAPTURE(TakeUp, axis_motion, Case::AxisMotion)
    ->Iterations(3)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(TakeUp, equatorial_tracking, Case::EquatorialTracking)
    ->Iterations(3)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK_CAPTURE(TakeUp, altaz_loop, Case::AltAzLoop)
    ->Iterations(3)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace scopemount
