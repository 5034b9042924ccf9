// Every exported function with the arguments a careless or hostile caller
// could pass: null pointers, NaN, infinities, axes past 1. Each answers with
// its documented code and never stores a non-finite setting.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <functional>
#include <limits>

#include "interface/current_mount.h"
#include "scopemount.h"
#include "support/test_mount.h"

namespace scopemount {
namespace {

constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
constexpr double Inf = std::numeric_limits<double>::infinity();
constexpr double FINE = 0.01;  // a value every argument below accepts
constexpr int32_t REFUSED = SCOPE_INVALID_PARAMETER;

// An export with one argument under test; `refused` is its answer to a
// non-finite value there while connected.
struct Call {
  const char* name;
  std::function<int32_t(double)> call;
  int32_t refused = REFUSED;
};

double pair[2] = {0.1, 0.2};
double star[4] = {0.1, 0.5, 0.1, 0.5};
double out[2];

const Call CALLS[] = {
    {"SetSite latitude", [](double x) { return ScopeSetSite(x, 0); }},
    {"SetSite elevation", [](double x) { return ScopeSetSite(0.3, x); }},
    {"RateFirstStar", [](double x) { double p[2] = {x, x}; return ScopeRateFirstStar(p); }, 0},
    {"RateSecondStar", [](double x) { double p[2] = {x, x}; return ScopeRateSecondStar(pair, p, 1); },
     0},
    {"RateThirdStar", [](double x) { double p[2] = {x, x}; return ScopeRateThirdStar(pair, pair, p); },
     0},
    {"ResetAlignment cone", [](double x) { return ScopeResetAlignment(x, 0); }},
    {"ResetAlignment non-perpendicularity", [](double x) { return ScopeResetAlignment(0, x); }},
    {"AlignOneStar", [](double x) { double s[4] = {x, 0.5, 0.1, x}; return ScopeAlignOneStar(s); }},
    {"AlignTwoStars", [](double x) { double s[4] = {x, 0.5, 0.1, x}; return ScopeAlignTwoStars(star, s); }},
    {"AlignThreeStars",
     [](double x) { double s[4] = {x, 0.5, 0.1, x}; return ScopeAlignThreeStars(star, star, s); }},
    {"MoveAxis", [](double x) { return ScopeMoveAxis(0, x); }},
    {"SlewAxis", [](double x) { return ScopeSlewAxis(1, x); }},
    {"SetAltitudeLimits lower", [](double x) { return ScopeSetAltitudeLimits(x, 1.0); }},
    {"SyncAxis", [](double x) { return ScopeSyncAxis(0, x); }},
    {"SetBacklash", [](double x) { return ScopeSetBacklash(0, x); }},
    {"SetGuideRate", [](double x) { return ScopeSetGuideRate(1, x); }},
    {"GotoEquatorial hour angle", [](double x) { return ScopeGotoEquatorial(x, 0.2); }},
    {"GotoEquatorial declination", [](double x) { return ScopeGotoEquatorial(0.2, x); }},
    {"GotoAxes 0", [](double x) { return ScopeGotoAxes(x, 0); }},
    {"GotoAxes 1", [](double x) { return ScopeGotoAxes(0, x); }},
    {"GotoHorizontal azimuth", [](double x) { return ScopeGotoHorizontal(x, 0.5); }},
    {"GotoHorizontal altitude", [](double x) { return ScopeGotoHorizontal(0.5, x); }},
    {"GotoOffset hour angle", [](double x) { return ScopeGotoOffset(x, 0.2, 0, 0); }},
    {"GotoOffset offset 0", [](double x) { return ScopeGotoOffset(0.1, 0.2, x, 0); }},
    {"GotoOffset offset 1", [](double x) { return ScopeGotoOffset(0.1, 0.2, 0, x); }},
    // A conversion answers NaN rather than refusing (checked below).
    {"SkyToAxes", [](double x) { return ScopeSkyToAxes(x, 0.2, out); }, SCOPE_OK},
};

// An export taking an axis; `past` is its answer to an axis past 1.
struct AxisCall {
  const char* name;
  std::function<int32_t(uint32_t)> call;
  int32_t past = REFUSED;
};

double angle;
uint32_t word;

const AxisCall AXIS_CALLS[] = {
    {"MoveAxis", [](uint32_t a) { return ScopeMoveAxis(a, 0.001); }},
    {"MoveAxis at rest", [](uint32_t a) { return ScopeMoveAxis(a, 0.0); }},
    {"StopAxis", [](uint32_t a) { return ScopeStopAxis(a); }},
    {"SyncAxis", [](uint32_t a) { return ScopeSyncAxis(a, 0.1); }},
    {"SetBacklash", [](uint32_t a) { return ScopeSetBacklash(a, 0.01); }},
    {"SetGuideRate", [](uint32_t a) { return ScopeSetGuideRate(a, 0.0); }},
    {"GetAxisPosition", [](uint32_t a) { return ScopeGetAxisPosition(a, &angle); }},
    {"GetAxisStatus", [](uint32_t a) { return ScopeGetAxisStatus(a, &word); }},
    {"SlewAxis: any nonzero axis is axis 1", [](uint32_t a) { return ScopeSlewAxis(a, 0.3); },
     SCOPE_OK},
};

// Exports with a pointer the caller must give, passed null.
const std::pair<const char*, std::function<int32_t()>> NULL_CALLS[] = {
    {"AlignOneStar", [] { return ScopeAlignOneStar(nullptr); }},
    {"AlignTwoStars", [] { return ScopeAlignTwoStars(star, nullptr); }},
    {"AlignThreeStars", [] { return ScopeAlignThreeStars(nullptr, star, star); }},
    {"GetAlignmentData", [] { return ScopeGetAlignmentData(nullptr); }},
    {"SetAlignmentData", [] { return ScopeSetAlignmentData(nullptr); }},
    {"SkyToAxes", [] { return ScopeSkyToAxes(0, 0, nullptr); }},
    {"GetAxisPosition", [] { return ScopeGetAxisPosition(0, nullptr); }},
    {"GetAxisPositions", [] { return ScopeGetAxisPositions(nullptr); }},
    {"GetSkyPosition", [] { return ScopeGetSkyPosition(nullptr); }},
    {"GetHorizontalPosition", [] { return ScopeGetHorizontalPosition(nullptr); }},
    {"GetAxisStatus", [] { return ScopeGetAxisStatus(0, nullptr); }},
    {"GetMountStatus", [] { return ScopeGetMountStatus(nullptr); }},
};

void ExpectMountSettingsFinite(const Mount& m) {
  const PointingSnapshot model = m.pointing.Load();
  for (int i = 0; i < 9; ++i) {
    EXPECT_TRUE(std::isfinite(model.skyToAxes.at(i / 3, i % 3)));
    EXPECT_TRUE(std::isfinite(model.axesToSky.at(i / 3, i % 3)));
  }
  for (double v : {model.indexError, model.coneError, model.nonPerpError, m.latitude.load(),
                   m.elevation.load(), m.guideRate[0].load(), m.guideRate[1].load(),
                   m.trackingRate.load(), m.backlash[0].load(), m.backlash[1].load(),
                   m.altitudeUpperLimit.load(), m.altitudeLowerLimit.load(),
                   m.misalignment.load(), m.gotoTolerance.load(), m.approachMargin.load(),
                   m.approachOvershoot.load(), m.slewLeadTime.load(), m.axisTarget[0].load(),
                   m.axisTarget[1].load(), m.gotoTarget[0].load(), m.gotoTarget[1].load(),
                   m.axisPosition[0].load(), m.axisPosition[1].load()}) {
    EXPECT_TRUE(std::isfinite(v)) << "a setting became " << v;
  }
}

TEST(BadInput, WithoutAMountEveryMountExportSaysNotConnected) {
  ScopeDisconnect();
  for (const Call& c : CALLS) EXPECT_EQ(c.call(FINE), SCOPE_NOT_CONNECTED) << c.name;
  for (const AxisCall& c : AXIS_CALLS) EXPECT_EQ(c.call(0), SCOPE_NOT_CONNECTED) << c.name;
  for (const auto& [name, call] : NULL_CALLS) EXPECT_EQ(call(), SCOPE_NOT_CONNECTED) << name;
  unsigned char record[SCOPE_ALIGNMENT_RECORD_SIZE] = {};
  EXPECT_EQ(ScopeIsEquatorial(), SCOPE_NOT_CONNECTED);
  EXPECT_EQ(ScopeGetAlignmentData(record), SCOPE_NOT_CONNECTED);
  EXPECT_EQ(ScopeSetAlignmentData(record), SCOPE_NOT_CONNECTED);
  EXPECT_EQ(ScopeGetAlignmentQuality(nullptr), SCOPE_NOT_CONNECTED);
  EXPECT_EQ(ScopeGetPointingTerms(nullptr, nullptr), SCOPE_NOT_CONNECTED);
  EXPECT_EQ(ScopeSetTracking(1), SCOPE_NOT_CONNECTED);
  EXPECT_EQ(ScopeSetTrackingRate(0), SCOPE_NOT_CONNECTED);
  EXPECT_EQ(ScopeSetExtraMode(0), SCOPE_NOT_CONNECTED);
  EXPECT_EQ(ScopeSyncHome(), SCOPE_NOT_CONNECTED);
  EXPECT_EQ(ScopeRateFirstStar(nullptr), 0) << "a null pair scores 0";
  EXPECT_EQ(ScopeRateSecondStar(nullptr, nullptr, 0), 0);
  EXPECT_EQ(ScopeRateThirdStar(nullptr, nullptr, nullptr), 0);
}

TEST(BadInput, ConnectedMountRefusesNullsNonFiniteValuesAndAxesPastOne) {
  testing::ScopedTestModel model(7, testing::Geometry::AltAz);
  ASSERT_EQ(ScopeConnect(7, NaN, Inf), SCOPE_OK) << "a bad site is not reported on connect";
  Mount* mount = CurrentMount();
  ASSERT_NE(mount, nullptr);
  EXPECT_EQ(mount->latitude, DEFAULT_LATITUDE) << "but it is not stored either";

  for (const double bad : {NaN, Inf, -Inf}) {
    for (const Call& c : CALLS) EXPECT_EQ(c.call(bad), c.refused) << c.name << " of " << bad;
    EXPECT_TRUE(std::isnan(out[0])) << "SkyToAxes of " << bad;
    EXPECT_EQ(ScopeSetAltitudeLimits(0.1, bad), bad > 0 ? SCOPE_OK : REFUSED)
        << "+Inf is clipped to the zenith like any large value";
    ScopeSetSlewParameters(bad, 0.1, 0.1, 0.1);
    ScopeSetSlewParameters(0.1, 0.1, 0.1, bad);
    EXPECT_TRUE(std::isnan(ScopeAngularSeparation(bad, 0, 0, 0)));
    EXPECT_TRUE(std::isnan(ScopeAngularSeparation(0, 0, 0, bad)));
    SYSTEMTIME t = {2020, 5, 0, 5, 1, 2, 3, 4};
    EXPECT_FALSE(std::isfinite(ScopeGetSiderealTime(t, bad, 0)));
  }
  for (const uint32_t axis : {2u, 3u, 0xFFFFFFFFu}) {
    for (const AxisCall& c : AXIS_CALLS) EXPECT_EQ(c.call(axis), c.past) << c.name << " " << axis;
  }
  for (const auto& [name, call] : NULL_CALLS) EXPECT_EQ(call(), REFUSED) << name;
  EXPECT_EQ(ScopeGetAlignmentQuality(nullptr), 0);
  EXPECT_EQ(ScopeGetPointingTerms(nullptr, nullptr), SCOPE_OK);

  // Integers at their extremes.
  EXPECT_EQ(ScopeSetTrackingRate(INT_MIN), SCOPE_OK);
  EXPECT_EQ(mount->trackingRate, 7.292115845221407e-05) << "unknown kinds mean sidereal";
  EXPECT_EQ(ScopeSetTracking(0xFFFFFFFFu), SCOPE_OK);
  EXPECT_EQ(ScopeSetTracking(0), SCOPE_OK);
  EXPECT_EQ(ScopeSetPortPath(-1, "/dev/null"), REFUSED);
  EXPECT_EQ(ScopeSetPortPath(INT_MAX, "/dev/null"), REFUSED);
  EXPECT_EQ(ScopeSetPortPath(9, nullptr), SCOPE_OK);

  ExpectMountSettingsFinite(*mount);
}

}  // namespace
}  // namespace scopemount
