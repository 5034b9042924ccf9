// The exports themselves: choosing and connecting a model, the port choice,
// what they do around the mount's own operations, and their answers to the
// arguments a careless or hostile caller could pass (null pointers, NaN,
// infinities, axes past 1): each answers with its documented code and never
// stores a non-finite setting.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <functional>
#include <limits>

#include "interface/current_mount.h"
#include "scopemount.h"
#include "serial/port_selection.h"
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

using testing::ConnectedTestMount;
using testing::Geometry;
using testing::ScopedTestModel;
using testing::TestMount;

// A model without a driver, and every model on a port that cannot be
// opened: the simulators connect, the hardware models find no controller on
// axis 1 (never NotImplemented). Nothing is left connected. (The ordinal
// host checks the numbers out of range.)
TEST(Connect, EveryModelNumberHasItsAnswer) {
  ScopeDisconnect();
  const MountFactory saved = ReplaceModelFactory(0, nullptr);
  EXPECT_EQ(ScopeConnect(0, 0.6, 100), SCOPE_NOT_IMPLEMENTED);
  EXPECT_EQ(ScopeIsEquatorial(), SCOPE_NOT_CONNECTED);
  ReplaceModelFactory(0, saved);

  ASSERT_EQ(ScopeSetPortPath(7, "/nonexistent/scopemount-no-such-port"), SCOPE_OK);
  ScopeSetComPort(7);
  for (int32_t model = 0; model < SCOPE_MODEL_COUNT; ++model) {
    const bool simulator =
        model == SCOPE_MODEL_EQUATORIAL_SIMULATOR || model == SCOPE_MODEL_ALTAZ_SIMULATOR;
    EXPECT_EQ(ScopeConnect(model, 0.6, 100), simulator ? SCOPE_OK : SCOPE_NO_RESPONSE_AXIS1)
        << "model " << model;
    const int32_t equatorial = model == SCOPE_MODEL_EQUATORIAL_SIMULATOR ? 1 : 0;
    EXPECT_EQ(ScopeIsEquatorial(), simulator ? equatorial : SCOPE_NOT_CONNECTED)
        << "a failed connection leaves nothing connected; model " << model;
    ScopeDisconnect();
  }
  ScopeSetPortPath(7, nullptr);
  ScopeSetComPort(0);
}

TEST(Connect, SameClassReappliesTheSiteAndAnotherIsRefused) {
  // Model 4 is made by the class of model 3, whose own number is 3.
  ScopedTestModel model4(4, Geometry::Equatorial, /*storedModelId=*/3);
  ASSERT_EQ(ScopeConnect(4, 0.6, 100), SCOPE_OK);
  EXPECT_EQ(ScopeIsEquatorial(), 1);
  Mount* first = CurrentMount();
  EXPECT_EQ(first->latitude, 0.6) << "the site is applied on connect";
  EXPECT_EQ(ScopeConnect(4, 0.2, 0), SCOPE_ALREADY_CONNECTED) << "4 is not the stored number";
  EXPECT_EQ(ScopeConnect(3, 0.2, 50), SCOPE_OK) << "the class's number re-applies the site";
  EXPECT_EQ(CurrentMount(), first) << "nothing new is created";
  EXPECT_EQ(first->latitude, 0.2);
  EXPECT_EQ(ScopeConnect(12, 0.2, 0), SCOPE_ALREADY_CONNECTED) << "connected test comes first";
  EXPECT_EQ(ScopeConnect(-1, 0.2, 0), SCOPE_ALREADY_CONNECTED);
  EXPECT_EQ(ScopeConnect(3, 9.0, 0), SCOPE_OK) << "a bad site is not reported on connect";
  EXPECT_EQ(ScopeDisconnect(), SCOPE_OK);
}

TEST(Connect, ComPortRules) {
  const int32_t saved = PortNumber();
  SetPortNumber(DEFAULT_PORT_NUMBER);
  for (const int32_t outOfRange : {MAX_PORT_NUMBER + 1, -1, INT_MIN, INT_MAX}) {
    ScopeSetComPort(outOfRange);
    EXPECT_EQ(PortNumber(), 2) << outOfRange << " is ignored";
  }
  ScopeSetComPort(0);
  EXPECT_EQ(PortNumber(), 0);
  ScopeSetComPort(255);
  EXPECT_EQ(PortNumber(), 255);
  SetPortNumber(saved);
}

TEST(Exports, ForwardingAndTheirOwnSteps) {
  double beyondATurn[2] = {7.0, 4.0};
  ScopeDisconnect();
  EXPECT_EQ(ScopeRateFirstStar(beyondATurn), SCOPE_NOT_CONNECTED);
  EXPECT_DOUBLE_EQ(beyondATurn[0], 7.0 - 2 * M_PI) << "normalised before the mount test";
  EXPECT_DOUBLE_EQ(beyondATurn[1], 4.0 - 2 * M_PI);
  double position = 0;

  ScopedTestModel model(7, Geometry::Equatorial);  // identity matrices
  ASSERT_EQ(ScopeConnect(7, 0.6, 100), SCOPE_OK);
  TestMount* mount = ConnectedTestMount();
  ASSERT_NE(mount, nullptr);
  mount->captureGotoAxes = true;
  mount->PlaceAxes(0.25, -0.5);
  EXPECT_EQ(ScopeGetAxisPosition(0, &position), SCOPE_OK);
  EXPECT_EQ(position, 0.25);

  // Slewing one axis keeps the other where it stands; any nonzero axis is axis 1.
  EXPECT_EQ(ScopeSlewAxis(1, 0.7), SCOPE_OK);
  EXPECT_EQ(mount->capturedGotoAxes[0], 0.25);
  EXPECT_EQ(mount->capturedGotoAxes[1], 0.7);
  EXPECT_EQ(ScopeSlewAxis(7, 0.9), SCOPE_OK);
  EXPECT_EQ(mount->capturedGotoAxes[1], 0.9);
  EXPECT_EQ(mount->capturedGotoAxes[0], 0.25);
  EXPECT_EQ(ScopeSlewAxis(0, -0.1), SCOPE_OK);
  EXPECT_EQ(mount->capturedGotoAxes[0], -0.1);
  EXPECT_EQ(mount->capturedGotoAxes[1], -0.5);
  mount->FailPositionReads(0, 1000);
  EXPECT_EQ(ScopeSlewAxis(1, 0.3), SCOPE_NO_RESPONSE_AXIS1) << "a failed read stops the slew";
  EXPECT_EQ(mount->capturedGotoAxesCalls, 3);
  double both[2] = {9, 9};
  EXPECT_EQ(ScopeGetAxisPositions(both), SCOPE_NO_RESPONSE_AXIS1);
  mount->FailPositionReads(0, 0);

  double cone = 1, nonPerp = 1;
  EXPECT_EQ(ScopeResetAlignment(0.001, 0.002), SCOPE_OK);
  EXPECT_EQ(ScopeGetPointingTerms(&cone, nullptr), SCOPE_OK);
  EXPECT_EQ(ScopeGetPointingTerms(nullptr, &nonPerp), SCOPE_OK);
  EXPECT_EQ(cone, 0.001);
  EXPECT_EQ(nonPerp, 0.002);
  double misalignment = 1;
  EXPECT_EQ(ScopeGetAlignmentQuality(&misalignment), 0);
  EXPECT_EQ(misalignment, 0.0);

  // The offset GOTO goes through the mount's frame and back.
  double axes[2];
  EXPECT_EQ(ScopeSkyToAxes(-0.3, 0.2, axes), SCOPE_OK);  // east: not mirrored
  EXPECT_NEAR(axes[0], -0.3 - (0.001 / std::cos(0.2) + 0.002 * std::tan(0.2)), 1e-14);
  ScopeSetSlewParameters(0.01, 0.02, 0.003, 4.0);
  EXPECT_EQ(mount->gotoTolerance, 0.003);
  EXPECT_EQ(mount->slewLeadTime, 4.0);
}

}  // namespace
}  // namespace scopemount
