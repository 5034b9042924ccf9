// Calls into the software double helpers per conversion and tracking cycle,
// beside a minimal hand-written version of the same computation.
//
// Built for soft-float ARM only: there every double operation is a call
// (__aeabi_dadd, __aeabi_dmul, ...), so counting the calls measures the
// arithmetic the library does, exactly and the same on every run. The link
// wraps each helper and math function named in COUNTED_SYMBOLS below
// (-Wl,--wrap=NAME, the list is read by bench/CMakeLists.txt): the wrapper
// counts and calls the real one. The library is linked statically, so its
// calls are wrapped too; calls made inside libm are not counted.
//
// Prints a table and exits with 1 when the library makes more than 1.1
// times the minimal number of helper calls, or of math calls, anywhere.
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "celestial/sidereal_time.h"
#include "minimal_versions.h"
#include "mount/mount.h"
#include "mount/tracking_workers.h"
#include "platform/clock.h"

namespace {

enum Kind { ADD_SUB, MUL, DIV, COMPARE, CONVERT, MATH, KIND_COUNT };

struct Counts {
  unsigned long calls[KIND_COUNT] = {};

  unsigned long Helpers() const {
    unsigned long sum = 0;
    for (int k = ADD_SUB; k < MATH; ++k) sum += calls[k];
    return sum;
  }
  unsigned long Math() const { return calls[MATH]; }
};

// The program is single-threaded while it counts (no worker is started), so
// plain counters suffice.
Counts counted;

}  // namespace

// kind, symbol, result, parameter list, argument list. One line per symbol;
// CMake reads the symbol names from these lines to wrap them.
#define COUNTED_SYMBOLS(X)                                                        \
  X(ADD_SUB, __aeabi_dadd, double, (double a, double b), (a, b))                 \
  X(ADD_SUB, __aeabi_dsub, double, (double a, double b), (a, b))                 \
  X(ADD_SUB, __aeabi_drsub, double, (double a, double b), (a, b))                \
  X(MUL, __aeabi_dmul, double, (double a, double b), (a, b))                     \
  X(DIV, __aeabi_ddiv, double, (double a, double b), (a, b))                     \
  X(COMPARE, __aeabi_dcmpeq, int, (double a, double b), (a, b))                  \
  X(COMPARE, __aeabi_dcmplt, int, (double a, double b), (a, b))                  \
  X(COMPARE, __aeabi_dcmple, int, (double a, double b), (a, b))                  \
  X(COMPARE, __aeabi_dcmpge, int, (double a, double b), (a, b))                  \
  X(COMPARE, __aeabi_dcmpgt, int, (double a, double b), (a, b))                  \
  X(COMPARE, __aeabi_dcmpun, int, (double a, double b), (a, b))                  \
  X(CONVERT, __aeabi_i2d, double, (int32_t a), (a))                              \
  X(CONVERT, __aeabi_ui2d, double, (uint32_t a), (a))                            \
  X(CONVERT, __aeabi_l2d, double, (int64_t a), (a))                              \
  X(CONVERT, __aeabi_ul2d, double, (uint64_t a), (a))                            \
  X(CONVERT, __aeabi_d2iz, int32_t, (double a), (a))                             \
  X(CONVERT, __aeabi_d2uiz, uint32_t, (double a), (a))                           \
  X(CONVERT, __aeabi_d2lz, int64_t, (double a), (a))                             \
  X(CONVERT, __aeabi_d2ulz, uint64_t, (double a), (a))                           \
  X(CONVERT, __aeabi_f2d, double, (float a), (a))                                \
  X(CONVERT, __aeabi_d2f, float, (double a), (a))                                \
  X(MATH, sin, double, (double a), (a))                                          \
  X(MATH, cos, double, (double a), (a))                                          \
  X(MATH, tan, double, (double a), (a))                                          \
  X(MATH, asin, double, (double a), (a))                                         \
  X(MATH, acos, double, (double a), (a))                                         \
  X(MATH, atan, double, (double a), (a))                                         \
  X(MATH, atan2, double, (double a, double b), (a, b))                           \
  X(MATH, sqrt, double, (double a), (a))                                         \
  X(MATH, fmod, double, (double a, double b), (a, b))                            \
  X(MATH, remainder, double, (double a, double b), (a, b))                       \
  X(MATH, floor, double, (double a), (a))                                        \
  X(MATH, ceil, double, (double a), (a))                                         \
  X(MATH, trunc, double, (double a), (a))                                        \
  X(MATH, round, double, (double a), (a))                                        \
  X(MATH, sincos, void, (double a, double* s, double* c), (a, s, c))

#define DEFINE_WRAPPER(kind, name, result, parameters, arguments) \
  extern "C" result __real_##name parameters;                     \
  extern "C" result __wrap_##name parameters {                    \
    ++counted.calls[kind];                                        \
    return __real_##name arguments;                               \
  }
COUNTED_SYMBOLS(DEFINE_WRAPPER)
#undef DEFINE_WRAPPER

namespace {

using scopemount::AnglePair;
using scopemount::Matrix3;
using scopemount::bench::MinimalRotate;
using scopemount::bench::MinimalSiderealTime;
using scopemount::Mount;
using scopemount::OwnedMount;

constexpr double LATITUDE = 0.6;
constexpr double INDEX_ERROR = 1e-3;
constexpr double CONE_ERROR = 2e-3;
constexpr double NON_PERP_ERROR = -1e-3;
constexpr double ALLOWED_RATIO = 1.1;
constexpr double TRACKING_LOOK_AHEAD_S = 30.0;

// Inputs pass through volatiles so the compiler cannot fold the minimal
// versions' arithmetic into constants.
volatile double hourAngleInput = 0.3;
volatile double declinationInput = 0.4;

template <typename Work>
Counts Count(Work&& work) {
  counted = Counts{};
  work();
  const Counts result = counted;
  counted = Counts{};
  return result;
}

// The Alt/Az nominal matrix at LATITUDE (sky to axes); its transpose is the
// way back.
Matrix3 AltAzMatrix() {
  const double s = std::sin(LATITUDE), c = std::cos(LATITUDE);
  Matrix3 m(-1.0);
  m.at(0, 0) = -s;
  m.at(0, 2) = c;
  m.at(2, 0) = c;
  m.at(2, 2) = s;
  return m;
}

Matrix3 Transposed(const Matrix3& m) {
  Matrix3 t(0.0);
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) t.at(i, j) = m.at(j, i);
  }
  return t;
}

// ---------------------------------------------------------------------------
// Minimal versions: the same results written out plainly, no mount.

struct PlainModel {
  double toAxes[3][3];
  double toSky[3][3];
  double index, cone, nonPerp;
};

PlainModel MakePlainModel() {
  PlainModel p{};
  const Matrix3 m = AltAzMatrix();
  const Matrix3 back = Transposed(m);
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      p.toAxes[i][j] = m.at(i, j);
      p.toSky[i][j] = back.at(i, j);
    }
  }
  p.index = INDEX_ERROR;
  p.cone = CONE_ERROR;
  p.nonPerp = NON_PERP_ERROR;
  return p;
}

[[gnu::noipa]] AnglePair MinimalSkyToAxes(const PlainModel& p, double ha, double dec) {
  AnglePair axes = MinimalRotate(p.toAxes, std::remainder(ha, 2 * scopemount::PI), dec);
  axes.lon -= p.cone / std::cos(axes.lat) + p.nonPerp * std::tan(axes.lat);
  axes.lat -= p.index;
  return axes;
}

[[gnu::noipa]] AnglePair MinimalAxesToSky(const PlainModel& p, double a0, double a1) {
  const double lat = a1 + p.index;
  const double lon = a0 + p.cone / std::cos(lat) + p.nonPerp * std::tan(lat);
  return MinimalRotate(p.toSky, lon, lat);
}

struct Rates {
  double axis0, axis1;
};

// One aligned Alt/Az cycle: where the star is now and 30 s after a second
// reading of the clock (the axis positions are read in between), both in
// axis angles; each axis aims at the later position, never reversing.
[[gnu::noipa]] Rates MinimalAlignedCycle(const PlainModel& p, double startHa, double dec,
                                         uint32_t nowMs, uint32_t aheadMs, double p0, double p1) {
  constexpr double maxOff = 0.05235987755982988, seam = 0.08726646259971647;
  const AnglePair now =
      MinimalSkyToAxes(p, startHa + scopemount::SIDEREAL_RATE * (nowMs / 1000.0), dec);
  const AnglePair ahead =
      MinimalSkyToAxes(p, startHa + scopemount::SIDEREAL_RATE * (aheadMs / 1000.0), dec);
  const auto unwrap = [](double d) {
    return std::fabs(std::fabs(d) - 2 * scopemount::PI) >= seam ? d
           : d > 0.0                                            ? d - 2 * scopemount::PI
                                                                : d + 2 * scopemount::PI;
  };
  if (std::fabs(unwrap(p0 - now.lon)) > maxOff || std::fabs(p1 - now.lat) > maxOff) {
    return {0.0, 0.0};
  }
  const double n0 = unwrap(ahead.lon - now.lon), n1 = ahead.lat - now.lat;
  const double c0 = unwrap(ahead.lon - p0), c1 = ahead.lat - p1;
  const auto keepDirection = [](double n, double c) {
    return (n >= 0.0) == (c >= 0.0) ? c / TRACKING_LOOK_AHEAD_S : 0.75 * n / TRACKING_LOOK_AHEAD_S;
  };
  return {keepDirection(n0, c0), keepDirection(n1, c1)};
}

[[gnu::noipa]] Rates MinimalUnalignedCycle(double latitude, double azimuth, double altitude) {
  const double sinLat = std::sin(latitude), cosLat = std::cos(latitude);
  return {scopemount::SIDEREAL_RATE * (sinLat - std::tan(altitude) * std::cos(azimuth) * cosLat),
          scopemount::SIDEREAL_RATE * std::sin(azimuth) * cosLat};
}

// ---------------------------------------------------------------------------
// The library: a mount whose hardware costs nothing, so every counted call
// is the library's own arithmetic.

class StillClock final : public scopemount::platform::Clock {
 public:
  static constexpr uint64_t NOW_MS = 5000000;
  uint64_t NowMs() const override { return NOW_MS; }
  std::chrono::steady_clock::time_point RealDeadlineAfter(uint32_t ms) const override {
    return std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
  }
};

class QuietMount final : public Mount {
 public:
  QuietMount() {
    pointing.Update([](scopemount::PointingSnapshot& model) {
      model.skyToAxes = AltAzMatrix();
      model.axesToSky = Transposed(model.skyToAxes);
      model.indexError = INDEX_ERROR;
      model.coneError = CONE_ERROR;
      model.nonPerpError = NON_PERP_ERROR;
    });
    latitude = LATITUDE;
  }
  int32_t ReadAxisPosition(uint32_t) override { return scopemount::Ok; }
  int32_t ReadAxisStatus(uint32_t) override { return scopemount::Ok; }
  int32_t SetAxisRate(uint32_t, double) override { return scopemount::Ok; }
  int32_t StopAxisMotor(uint32_t) override { return scopemount::Ok; }

  scopemount::AltAzTracking tracking{*this};
};

// Anchors tracking on a star `elapsedMs` ago and puts the axes where it is
// now, so the cycle takes its usual path (no re-anchoring).
void StartTrackingStar(QuietMount& mount, bool aligned, uint32_t elapsedMs) {
  const uint32_t now = scopemount::platform::TickCount();
  AnglePair star{hourAngleInput, declinationInput};
  AnglePair sky{star.lon + scopemount::SIDEREAL_RATE * (elapsedMs / 1000.0), star.lat};
  AnglePair axes;
  mount.SkyToAxes(&sky, &axes, 1);
  mount.axisPosition[0] = axes.lon;
  mount.axisPosition[1] = axes.lat;
  mount.trackStartSky[0] = star.lon;
  mount.trackStartSky[1] = star.lat;
  mount.trackStartTick = now - elapsedMs;
  mount.aligned = aligned ? 1 : 0;
  mount.mountState = scopemount::STATE_TRACKING;
}

struct Row {
  const char* operation;
  Counts library;
  Counts minimal;
};

double Ratio(unsigned long library, unsigned long minimal) {
  if (minimal == 0) return library == 0 ? 1.0 : HUGE_VAL;
  return static_cast<double>(library) / static_cast<double>(minimal);
}

void PrintCounts(const char* operation, const char* version, const Counts& c) {
  std::printf("| %-26s | %-7s | %7lu | %3lu | %3lu | %7lu | %7lu | %7lu | %4lu |", operation,
              version, c.calls[ADD_SUB], c.calls[MUL], c.calls[DIV], c.calls[COMPARE],
              c.calls[CONVERT], c.Helpers(), c.Math());
}

// Prints the row pair; false when a ratio is over the allowance.
bool Report(const Row& row) {
  const double helpers = Ratio(row.library.Helpers(), row.minimal.Helpers());
  const double math = Ratio(row.library.Math(), row.minimal.Math());
  PrintCounts(row.operation, "library", row.library);
  std::printf(" %13.2f | %10.2f |\n", helpers, math);
  PrintCounts("", "minimal", row.minimal);
  std::printf(" %13s | %10s |\n", "", "");
  return helpers <= ALLOWED_RATIO && math <= ALLOWED_RATIO;
}

}  // namespace

int main() {
  static StillClock still;
  scopemount::platform::UseClock(&still);
  const PlainModel plain = MakePlainModel();
  OwnedMount<QuietMount> mount(new QuietMount);
  constexpr uint32_t elapsedMs = 12000;
  const SYSTEMTIME time{2026, 11, 1, 23, 21, 30, 15, 250};

  const Row rows[] = {
      {"SkyToAxes",
       Count([&] {
         AnglePair sky{hourAngleInput, declinationInput};
         AnglePair axes;
         mount->SkyToAxes(&sky, &axes, 1);
       }),
       Count([&] { MinimalSkyToAxes(plain, hourAngleInput, declinationInput); })},
      {"AxesToSky",
       Count([&] {
         AnglePair axes{hourAngleInput, declinationInput};
         AnglePair sky;
         mount->AxesToSky(&axes, &sky, 1);
       }),
       Count([&] { MinimalAxesToSky(plain, hourAngleInput, declinationInput); })},
      {"GreenwichSiderealTime",
       Count([&] { scopemount::GreenwichSiderealTime(time, hourAngleInput, 0); }),
       Count([&] { MinimalSiderealTime(time, hourAngleInput); })},
      {"Alt/Az cycle, aligned",
       [&] {
         StartTrackingStar(*mount, true, elapsedMs);
         return Count([&] { mount->tracking.RunCycle(); });
       }(),
       Count([&] {
         MinimalAlignedCycle(plain, hourAngleInput, declinationInput, elapsedMs,
                             elapsedMs + scopemount::ALIGNED_TRACKING_PERIOD_MS,
                             mount->axisPosition[0], mount->axisPosition[1]);
       })},
      {"Alt/Az cycle, not aligned",
       [&] {
         StartTrackingStar(*mount, false, elapsedMs);
         return Count([&] { mount->tracking.RunCycle(); });
       }(),
       Count([&] {
         MinimalUnalignedCycle(LATITUDE, mount->axisPosition[0], mount->axisPosition[1]);
       })},
  };

  std::printf(
      "| %-26s | %-7s | add/sub | mul | div | compare | convert | helpers | math | helper ratio "
      "| math ratio |\n",
      "Operation", "version");
  std::printf("|%s|\n", "---|---|---|---|---|---|---|---|---|---|---");
  bool withinAllowance = true;
  for (const Row& row : rows) withinAllowance = Report(row) && withinAllowance;
  mount.reset();
  scopemount::platform::UseClock(nullptr);
  if (!withinAllowance) {
    std::printf("soft_float_calls: the library makes more than %.1f times the minimal calls\n",
                ALLOWED_RATIO);
    return 1;
  }
  return 0;
}
