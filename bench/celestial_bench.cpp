// The conversions a status poll and every slew pass make, each beside a
// minimal hand-written version of the same arithmetic: the ratio of the two
// is what the library's structure (snapshot of the pointing model, virtual
// calls, argument write-back) costs.
#include <benchmark/benchmark.h>

#include <cmath>

#include "celestial/sidereal_time.h"
#include "minimal_versions.h"
#include "mount/mount.h"

namespace {

using scopemount::AnglePair;
using scopemount::bench::MinimalRotate;
using scopemount::bench::MinimalSiderealTime;
using scopemount::Matrix3;

constexpr double LATITUDE = 0.7;

// The nominal equatorial matrix at LATITUDE, plus small pointing terms.
Matrix3 NominalMatrix() {
  const double s = std::sin(LATITUDE), c = std::cos(LATITUDE);
  Matrix3 m(0.0);
  m.at(0, 0) = -s;
  m.at(0, 2) = c;
  m.at(1, 1) = -1;
  m.at(2, 0) = c;
  m.at(2, 2) = s;
  return m;
}

struct PlainModel {
  double m[3][3];
  double index, cone, nonPerp;
};

PlainModel MakePlainModel() {
  PlainModel p{};
  const Matrix3 m = NominalMatrix();
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) p.m[i][j] = m.at(i, j);
  }
  p.index = 1e-3;
  p.cone = 2e-3;
  p.nonPerp = -1e-3;
  return p;
}

scopemount::Mount& BenchMount() {
  static scopemount::Mount mount;
  static const bool ready = [] {
    mount.pointing.Update([](scopemount::PointingSnapshot& model) {
      model.skyToAxes = NominalMatrix();
      model.axesToSky = NominalMatrix();
      model.indexError = 1e-3;
      model.coneError = 2e-3;
      model.nonPerpError = -1e-3;
    });
    return true;
  }();
  (void)ready;
  return mount;
}

void BM_SkyToAxes(benchmark::State& state) {
  scopemount::Mount& mount = BenchMount();
  double ha = 0.3;
  for (auto _ : state) {
    AnglePair sky{ha, 0.4};
    AnglePair axes;
    mount.SkyToAxes(&sky, &axes, 1);
    benchmark::DoNotOptimize(axes);
    ha += 1e-6;
  }
}

void BM_SkyToAxes_Minimal(benchmark::State& state) {
  const PlainModel p = MakePlainModel();
  double ha = 0.3;
  for (auto _ : state) {
    const double h = std::remainder(ha, 2 * 3.141592653589793);
    AnglePair axes = MinimalRotate(p.m, h, 0.4);
    axes.lon -= p.cone / std::cos(axes.lat) + p.nonPerp * std::tan(axes.lat);
    axes.lat -= p.index;
    benchmark::DoNotOptimize(axes);
    ha += 1e-6;
  }
}

void BM_AxesToSky(benchmark::State& state) {
  scopemount::Mount& mount = BenchMount();
  double a0 = 0.3;
  for (auto _ : state) {
    AnglePair axes{a0, 0.4};
    AnglePair sky;
    mount.AxesToSky(&axes, &sky, 1);
    benchmark::DoNotOptimize(sky);
    a0 += 1e-6;
  }
}

void BM_AxesToSky_Minimal(benchmark::State& state) {
  const PlainModel p = MakePlainModel();
  double a0 = 0.3;
  for (auto _ : state) {
    const double a1 = 0.4 + p.index;
    const double lon = a0 + p.cone / std::cos(a1) + p.nonPerp * std::tan(a1);
    AnglePair sky = MinimalRotate(p.m, lon, a1);
    benchmark::DoNotOptimize(sky);
    a0 += 1e-6;
  }
}

void BM_GreenwichSiderealTime(benchmark::State& state) {
  SYSTEMTIME t{2026, 11, 1, 23, 21, 30, 15, 250};
  for (auto _ : state) {
    benchmark::DoNotOptimize(scopemount::GreenwichSiderealTime(t, 1.0, 0));
    t.wMilliseconds = static_cast<uint16_t>((t.wMilliseconds + 1) % 1000);
  }
}

void BM_GreenwichSiderealTime_Minimal(benchmark::State& state) {
  SYSTEMTIME t{2026, 11, 1, 23, 21, 30, 15, 250};
  for (auto _ : state) {
    benchmark::DoNotOptimize(MinimalSiderealTime(t, 1.0));
    t.wMilliseconds = static_cast<uint16_t>((t.wMilliseconds + 1) % 1000);
  }
}

BENCHMARK(BM_SkyToAxes);
BENCHMARK(BM_SkyToAxes_Minimal);
BENCHMARK(BM_AxesToSky);
BENCHMARK(BM_AxesToSky_Minimal);
BENCHMARK(BM_GreenwichSiderealTime);
BENCHMARK(BM_GreenwichSiderealTime_Minimal);

}  // namespace
