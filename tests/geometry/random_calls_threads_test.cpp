// A seeded random sequence of exported calls from one caller thread, the
// way a careless host might make them: both simulators, connects and
// disconnects mixed in, motions started and stopped while others run, and
// hostile arguments (NaN, infinities, huge angles, axes past 1, null
// pointers) among ordinary ones. Every call must return, none waiting out
// a worker's time-out, and the library must still work at the end.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <random>
#include <string>

#include "geometry/simulator_session.h"
#include "mount/tracking_workers.h"

namespace scopemount::testing {
namespace {

constexpr double CLOCK_SPEED = 20.0;
constexpr int CALLS_PER_SEED = 400;
constexpr uint32_t SEEDS[] = {1, 2, 3, 4, 5, 6, 7, 8};

constexpr double HOSTILE[] = {std::numeric_limits<double>::quiet_NaN(),
                              std::numeric_limits<double>::infinity(),
                              -std::numeric_limits<double>::infinity(),
                              1e300,
                              -1e300,
                              std::numeric_limits<double>::denorm_min(),
                              0.0,
                              100.0};

class Caller {
 public:
  explicit Caller(uint32_t seed) : random_(seed) {}

  // The kinds of call CallOne picks from, by number.
  static constexpr const char* KINDS[] = {
      "Connect", "Disconnect", "SetSite", "GotoEquatorial", "GotoHorizontal", "GotoAxes",
      "GotoOffset", "MoveAxis", "StopAxis", "SlewAxis", "SetTracking", "SetTrackingRate",
      "SetBacklash", "SetGuideRate", "SetAltitudeLimits", "SyncAxis", "SyncHome",
      "SetSlewParameters", "Align", "Rate", "AlignmentData", "Positions", "Status", "Settings"};

  // One call chosen at random; returns its kind.
  uint32_t CallOne() {
    const uint32_t kind = Pick(std::size(KINDS));
    switch (kind) {
      case 0: ScopeConnect(Model(), Number(HALF_PI), Number(9000)); break;
      case 1: if (Pick(6) == 0) ScopeDisconnect(); break;
      case 2: ScopeSetSite(Number(HALF_PI), Number(9000)); break;
      case 3: ScopeGotoEquatorial(Number(PI), Number(HALF_PI)); break;
      case 4: ScopeGotoHorizontal(Number(PI), Number(HALF_PI)); break;
      case 5: ScopeGotoAxes(Number(PI), Number(PI)); break;
      case 6: ScopeGotoOffset(Number(PI), Number(HALF_PI), Number(0.1), Number(0.1)); break;
      case 7: ScopeMoveAxis(Axis(), Number(0.02)); break;
      case 8: ScopeStopAxis(Axis()); break;
      case 9: ScopeSlewAxis(Axis(), Number(PI)); break;
      case 10: ScopeSetTracking(Pick(4) == 0 ? 7u : Pick(2)); break;
      case 11: ScopeSetTrackingRate(static_cast<int32_t>(Pick(5)) - 1); break;
      case 12: ScopeSetBacklash(Axis(), Number(0.03)); break;
      case 13: ScopeSetGuideRate(Axis(), Number(SIDEREAL_RATE)); break;
      case 14: ScopeSetAltitudeLimits(Number(0.5), Number(1.5)); break;
      case 15: ScopeSyncAxis(Axis(), Number(PI)); break;
      case 16: ScopeSyncHome(); break;
      case 17:
        ScopeSetSlewParameters(Number(0.05), Number(0.05), Number(0.001), Number(3.0));
        break;
      case 18: Align(); break;
      case 19: Rate(); break;
      case 20: AlignmentData(); break;
      case 21: Positions(); break;
      case 22: Status(); break;
      default: Settings(); break;
    }
    return kind;
  }

 private:
  uint32_t Pick(uint32_t n) { return std::uniform_int_distribution<uint32_t>(0, n - 1)(random_); }
  bool Hostile() { return Pick(5) == 0; }
  double Number(double range) {
    if (Hostile()) return HOSTILE[Pick(std::size(HOSTILE))];
    return std::uniform_real_distribution<double>(-range, range)(random_);
  }
  uint32_t Axis() { return Hostile() ? (Pick(2) == 0 ? 2u : 0xFFFFFFFFu) : Pick(2); }
  int32_t Model() {
    if (Hostile()) return Pick(2) == 0 ? -1 : static_cast<int32_t>(Pick(14));
    return Pick(2) == 0 ? SCOPE_MODEL_EQUATORIAL_SIMULATOR : SCOPE_MODEL_ALTAZ_SIMULATOR;
  }
  // A buffer, or null now and then.
  template <typename T>
  T* Maybe(T* buffer) { return Hostile() ? nullptr : buffer; }
  void FillStar(double* star) {
    for (int i = 0; i < 4; ++i) star[i] = Number(i % 2 == 0 ? PI : HALF_PI);
  }

  void Align() {
    double a[4], b[4], c[4];
    FillStar(a);
    FillStar(b);
    FillStar(c);
    switch (Pick(4)) {
      case 0: ScopeAlignOneStar(Maybe(a)); break;
      case 1: ScopeAlignTwoStars(Maybe(a), Maybe(b)); break;
      case 2: ScopeAlignThreeStars(Maybe(a), b, Maybe(c)); break;
      default: ScopeResetAlignment(Number(0.01), Number(0.01)); break;
    }
  }
  void Rate() {
    double a[2] = {Number(PI), Number(HALF_PI)};
    double b[2] = {Number(PI), Number(HALF_PI)};
    double c[2] = {Number(PI), Number(HALF_PI)};
    switch (Pick(3)) {
      case 0: ScopeRateFirstStar(Maybe(a)); break;
      case 1: ScopeRateSecondStar(a, Maybe(b), static_cast<int32_t>(Pick(3))); break;
      default: ScopeRateThirdStar(a, b, Maybe(c)); break;
    }
  }
  void AlignmentData() {
    unsigned char record[SCOPE_ALIGNMENT_RECORD_SIZE] = {};
    ScopeGetAlignmentData(Maybe(record));
    if (Pick(3) == 0) record[Pick(SCOPE_ALIGNMENT_RECORD_SIZE)] ^= 0x5A;
    ScopeSetAlignmentData(Maybe(record));
  }
  void Positions() {
    double pair[2];
    double one = 0.0;
    ScopeGetAxisPosition(Axis(), Maybe(&one));
    ScopeGetAxisPositions(Maybe(pair));
    ScopeGetSkyPosition(Maybe(pair));
    ScopeGetHorizontalPosition(Maybe(pair));
    ScopeSkyToAxes(Number(PI), Number(HALF_PI), Maybe(pair));
  }
  void Status() {
    uint32_t word = 0;
    double misalignment = 0.0, cone = 0.0, nonPerp = 0.0;
    ScopeGetAxisStatus(Axis(), Maybe(&word));
    ScopeGetMountStatus(Maybe(&word));
    ScopeGetAlignmentQuality(Maybe(&misalignment));
    ScopeGetPointingTerms(Maybe(&cone), Maybe(&nonPerp));
    ScopeIsEquatorial();
  }
  void Settings() {
    ScopeSetExtraMode(static_cast<int32_t>(Pick(5)) - 2);
    ScopeSetComPort(static_cast<int32_t>(Pick(300)) - 10);
  }

  std::mt19937 random_;
};

// After the sequence the library still connects and slews where it is told.
void ExpectUsable(int32_t model) {
  DisconnectOnceWorkersEnd();
  ASSERT_EQ(ScopeConnect(model, 0.6, 100.0), SCOPE_OK);
  ASSERT_EQ(ScopeGotoAxes(0.3, 0.2), SCOPE_OK);
  EXPECT_TRUE(WaitUntil([] {
    const AnglePair axes = AxisPositions();
    return MountState() == SCOPE_STATE_IDLE && std::fabs(axes.lon - 0.3) < 0.01 &&
           std::fabs(axes.lat - 0.2) < 0.01;
  })) << "the slew after the sequence did not arrive";
  DisconnectOnceWorkersEnd();
}

TEST(RandomCalls, EveryCallReturnsAndTheLibraryStaysUsable) {
  uint32_t slowestMs = 0;
  std::string slowest = "none";
  for (const uint32_t seed : SEEDS) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    ScopedFastClock clock(CLOCK_SPEED);
    ScopeSetComPort(2);
    Caller caller(seed);
    for (int i = 0; i < CALLS_PER_SEED; ++i) {
      const uint32_t start = Tick();
      const uint32_t kind = caller.CallOne();
      const uint32_t tookMs = Tick() - start;
      if (tookMs > slowestMs) {
        slowestMs = tookMs;
        slowest = std::string(Caller::KINDS[kind]) + " (seed " + std::to_string(seed) + ")";
      }
    }
    ExpectUsable(seed % 2 == 0 ? SCOPE_MODEL_EQUATORIAL_SIMULATOR : SCOPE_MODEL_ALTAZ_SIMULATOR);
    ScopeSetComPort(2);
  }
  // Test-clock time: a stall of the whole process lengthens it too, so the
  // bound is the halt's own time-out, which a call waiting on a worker that
  // never answers would reach.
  std::printf("slowest call: %s, %u ms of test clock\n", slowest.c_str(), slowestMs);
  EXPECT_LT(slowestMs, TRACKING_HALT_WAIT_MS) << slowest << " waited out the tracking halt";
}

}  // namespace
}  // namespace scopemount::testing
