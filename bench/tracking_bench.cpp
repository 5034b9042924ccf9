// Tracking quality and cost on the simulated test mount.
//
// Drift: a star is tracked for a simulated hour on a fast clock (one hour
// costs about a second), and the angle between where the axes point and
// where the star is, sampled every simulated minute, is reported in
// arcseconds (largest and final) as counters. Equatorial tracking, and the
// Alt/Az loop aligned (30 s look-ahead) and unaligned (closed-form rates
// every 10 s), at a few declinations.
//
// Cost: the CPU time of one Alt/Az tracking cycle (both rates computed and
// commanded to the test mount), beside a minimal hand-written computation
// of the same two rates.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>

#include "mount/tracking_workers.h"
#include "platform/clock.h"
// The bench programs link the library only; the test mount and the fast
// clock are compiled in here.
#include "support/fast_clock.cpp"
#include "support/test_mount.cpp"

namespace scopemount {
namespace {

using testing::Command;
using testing::Geometry;
using testing::ScopedFastClock;
using testing::TestMount;
using testing::WaitUntil;

constexpr double DEG = PI / 180.0;
constexpr double ARCSEC = DEG / 3600.0;
constexpr double LATITUDE = 0.6;                // about 34 degrees north
constexpr double START_HOUR_ANGLE = -15 * DEG;  // an hour east of the meridian
constexpr double CLOCK_SPEED = 3600.0;          // a simulated hour a second
constexpr int MINUTES = 60;

enum class Mode { Equatorial, AltAzAligned, AltAzUnaligned };

void TrackingDrift(benchmark::State& state, Mode mode) {
  const double declination = static_cast<double>(state.range(0)) * DEG;
  double largest = 0.0;
  double final = 0.0;
  for (auto _ : state) {
    ScopedFastClock fast(CLOCK_SPEED);
    const Geometry geometry = mode == Mode::Equatorial ? Geometry::Equatorial : Geometry::AltAz;
    OwnedMount<TestMount> mount(new TestMount(geometry, geometry == Geometry::AltAz ? 7 : 6));
    mount->SetSite(LATITUDE, 0);
    mount->aligned = mode == Mode::AltAzAligned ? 1 : 0;
    AnglePair star{START_HOUR_ANGLE, declination};
    AnglePair axes;
    mount->SkyToAxes(&star, &axes, 1);
    mount->PlaceAxes(axes.lon, axes.lat);
    mount->SetTracking(1);
    if (!WaitUntil([&] { return mount->CommandCount(Command::SetRate, 0) > 0; })) {
      state.SkipWithError("tracking did not start");
      return;
    }
    const uint32_t startTick = mount->trackStartTick;
    largest = 0.0;
    for (int minute = 1; minute <= MINUTES; ++minute) {
      platform::Sleep(60000);
      const double seconds = static_cast<double>(platform::TickCount() - startTick) / 1000.0;
      const AnglePair sky = mount->TrueSky();
      final = AngularSeparation(sky.lon, sky.lat, star.lon + SIDEREAL_RATE * seconds, star.lat) /
              ARCSEC;
      largest = std::max(largest, final);
    }
  }
  state.counters["max_drift_arcsec"] = largest;
  state.counters["end_drift_arcsec"] = final;
}

// An aligned Alt/Az mount tracking a star, for timing single cycles.
OwnedMount<TestMount> TrackingAltAzMount(bool aligned) {
  OwnedMount<TestMount> mount(new TestMount(Geometry::AltAz, 7));
  mount->SetSite(LATITUDE, 0);
  mount->aligned = aligned ? 1 : 0;
  AnglePair star{START_HOUR_ANGLE, 20 * DEG};
  AnglePair axes;
  mount->SkyToAxes(&star, &axes, 1);
  mount->PlaceAxes(axes.lon, axes.lat);
  mount->trackStartSky[0] = star.lon;
  mount->trackStartSky[1] = star.lat;
  mount->trackStartTick = platform::TickCount();
  mount->mountState = STATE_TRACKING;
  return mount;
}

void BM_AltAzCycleAligned(benchmark::State& state) {
  OwnedMount<TestMount> mount = TrackingAltAzMount(true);
  AltAzTracking tracking(*mount);  // one cycle of the layer's loop, run here
  for (auto _ : state) benchmark::DoNotOptimize(tracking.RunCycle());
}

void BM_AltAzCycleUnaligned(benchmark::State& state) {
  OwnedMount<TestMount> mount = TrackingAltAzMount(false);
  AltAzTracking tracking(*mount);  // one cycle of the layer's loop, run here
  for (auto _ : state) benchmark::DoNotOptimize(tracking.RunCycle());
}

// The same two aligned rates written out by hand: two conversions through
// a fixed matrix and the differences, no mount, no hardware calls.
void BM_HandWrittenAlignedRates(benchmark::State& state) {
  Matrix3 m(-1.0);
  m.at(0, 0) = -std::sin(LATITUDE);
  m.at(0, 2) = std::cos(LATITUDE);
  m.at(2, 0) = std::cos(LATITUDE);
  m.at(2, 2) = std::sin(LATITUDE);
  double hourAngle = START_HOUR_ANGLE;
  for (auto _ : state) {
    benchmark::DoNotOptimize(hourAngle);
    const AnglePair now = TransformDirection(m, {hourAngle, 20 * DEG});
    const AnglePair ahead = TransformDirection(m, {hourAngle + SIDEREAL_RATE * 30.0, 20 * DEG});
    const double rate0 = (ahead.lon - now.lon) / 30.0;
    const double rate1 = (ahead.lat - now.lat) / 30.0;
    benchmark::DoNotOptimize(rate0);
    benchmark::DoNotOptimize(rate1);
  }
}

void Declinations(benchmark::internal::Benchmark* b) {
  for (int degrees : {0, 30, 60, 80}) b->Arg(degrees);
  b->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
}

BENCHMARK_CAPTURE(TrackingDrift, equatorial, Mode::Equatorial)->Apply(Declinations);
BENCHMARK_CAPTURE(TrackingDrift, altaz_aligned, Mode::AltAzAligned)->Apply(Declinations);
BENCHMARK_CAPTURE(TrackingDrift, altaz_unaligned, Mode::AltAzUnaligned)->Apply(Declinations);
BENCHMARK(BM_AltAzCycleAligned);
BENCHMARK(BM_AltAzCycleUnaligned);
BENCHMARK(BM_HandWrittenAlignedRates);

}  // namespace
}  // namespace scopemount
