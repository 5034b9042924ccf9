// Walks every exported function with the arguments a careless or hostile
// caller could pass: null pointers, NaN, infinities, axes past 1. Each must
// answer with its documented code and never store a non-finite setting.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>

#include "interface/current_mount.h"
#include "scopemount.h"
#include "support/test_mount.h"

namespace scopemount {
namespace {

constexpr double NaN = std::numeric_limits<double>::quiet_NaN();
constexpr double Inf = std::numeric_limits<double>::infinity();
constexpr double NON_FINITE[] = {NaN, Inf, -Inf};

void ExpectEveryMountExportSays(int32_t code) {
  double pair[2] = {0, 0};
  double star[4] = {0, 0, 0, 0};
  uint32_t word = 0;
  unsigned char record[SCOPE_ALIGNMENT_RECORD_SIZE] = {};
  EXPECT_EQ(ScopeSetSite(0.1, 0), code);
  EXPECT_EQ(ScopeIsEquatorial(), code);
  EXPECT_EQ(ScopeRateFirstStar(pair), code);
  EXPECT_EQ(ScopeRateSecondStar(pair, pair, 0), code);
  EXPECT_EQ(ScopeRateThirdStar(pair, pair, pair), code);
  EXPECT_EQ(ScopeResetAlignment(0, 0), code);
  EXPECT_EQ(ScopeAlignOneStar(star), code);
  EXPECT_EQ(ScopeAlignTwoStars(star, star), code);
  EXPECT_EQ(ScopeAlignThreeStars(star, star, star), code);
  EXPECT_EQ(ScopeGetAlignmentQuality(nullptr), code);
  EXPECT_EQ(ScopeGetPointingTerms(nullptr, nullptr), code);
  EXPECT_EQ(ScopeGetAlignmentData(record), code);
  EXPECT_EQ(ScopeSetAlignmentData(record), code);
  EXPECT_EQ(ScopeMoveAxis(0, 0.001), code);
  EXPECT_EQ(ScopeSlewAxis(0, 0.1), code);
  EXPECT_EQ(ScopeStopAxis(0), code);
  EXPECT_EQ(ScopeSetAltitudeLimits(0, 1), code);
  EXPECT_EQ(ScopeSyncAxis(0, 0), code);
  EXPECT_EQ(ScopeSetBacklash(0, 0), code);
  EXPECT_EQ(ScopeSetGuideRate(0, 0), code);
  EXPECT_EQ(ScopeGotoEquatorial(0, 0), code);
  EXPECT_EQ(ScopeSetTracking(1), code);
  EXPECT_EQ(ScopeSetTrackingRate(0), code);
  EXPECT_EQ(ScopeSetExtraMode(0), code);
  EXPECT_EQ(ScopeGotoAxes(0, 0), code);
  EXPECT_EQ(ScopeGotoHorizontal(0, 0.5), code);
  EXPECT_EQ(ScopeSkyToAxes(0, 0, pair), code);
  EXPECT_EQ(ScopeGotoOffset(0, 0, 0, 0), code);
  EXPECT_EQ(ScopeSyncHome(), code);
  EXPECT_EQ(ScopeGetAxisPosition(0, nullptr), code);
  EXPECT_EQ(ScopeGetAxisPositions(nullptr), code);
  EXPECT_EQ(ScopeGetSkyPosition(nullptr), code);
  EXPECT_EQ(ScopeGetHorizontalPosition(nullptr), code);
  EXPECT_EQ(ScopeGetAxisStatus(0, &word), code);
  EXPECT_EQ(ScopeGetMountStatus(nullptr), code);
}

void ExpectMountSettingsFinite(const Mount& m) {
  const PointingSnapshot model = m.pointing.Load();
  for (int i = 0; i < 3; ++i) {
    for (int j = 0; j < 3; ++j) {
      EXPECT_TRUE(std::isfinite(model.skyToAxes.at(i, j)));
      EXPECT_TRUE(std::isfinite(model.axesToSky.at(i, j)));
    }
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

TEST(BadInput, WithoutAMountEveryExportSaysNotConnected) {
  ScopeDisconnect();
  ExpectEveryMountExportSays(SCOPE_NOT_CONNECTED);
  ScopeSetSlewParameters(NaN, NaN, NaN, NaN);  // no mount, no result: must just return
  EXPECT_EQ(ScopeRateFirstStar(nullptr), 0) << "null pair scores 0";
  EXPECT_EQ(ScopeRateSecondStar(nullptr, nullptr, 0), 0);
  EXPECT_EQ(ScopeRateThirdStar(nullptr, nullptr, nullptr), 0);
}

TEST(BadInput, ConnectedMountRefusesNullsNonFiniteValuesAndAxesPastOne) {
  testing::ScopedTestModel model(7, testing::Geometry::AltAz);
  ASSERT_EQ(ScopeConnect(7, NaN, Inf), SCOPE_OK) << "a bad site is not reported on connect";
  Mount* mount = CurrentMount();
  ASSERT_NE(mount, nullptr);
  EXPECT_EQ(mount->latitude, DEFAULT_LATITUDE) << "but it is not stored either";

  double pair[2] = {0.1, 0.2};
  double out[2];
  double angle = 0;
  uint32_t word = 0;
  double star[4] = {0.1, 0.5, 0.1, 0.5};
  for (double bad : NON_FINITE) {
    SCOPED_TRACE(bad);
    EXPECT_EQ(ScopeSetSite(bad, 0), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeSetSite(0.3, bad), SCOPE_INVALID_PARAMETER);
    double badPair[2] = {bad, bad};
    EXPECT_EQ(ScopeRateFirstStar(badPair), 0);
    EXPECT_EQ(ScopeRateSecondStar(pair, badPair, 1), 0);
    EXPECT_EQ(ScopeRateThirdStar(pair, pair, badPair), 0);
    EXPECT_EQ(ScopeResetAlignment(bad, 0), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeResetAlignment(0, bad), SCOPE_INVALID_PARAMETER);
    double badStar[4] = {bad, 0.5, 0.1, bad};
    EXPECT_EQ(ScopeAlignOneStar(badStar), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeAlignTwoStars(star, badStar), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeAlignThreeStars(star, star, badStar), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeMoveAxis(0, bad), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeSlewAxis(1, bad), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeSetAltitudeLimits(bad, 1.0), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeSetAltitudeLimits(0.1, bad > 0 ? NaN : bad), SCOPE_INVALID_PARAMETER)
        << "(+Inf is clipped to the zenith like any large value)";
    EXPECT_EQ(ScopeSyncAxis(0, bad), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeSetBacklash(0, bad), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeSetGuideRate(1, bad), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeGotoEquatorial(bad, 0.2), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeGotoEquatorial(0.2, bad), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeGotoAxes(bad, 0), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeGotoAxes(0, bad), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeGotoHorizontal(bad, 0.5), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeGotoHorizontal(0.5, bad), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeGotoOffset(bad, 0.2, 0, 0), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeGotoOffset(0.1, 0.2, bad, 0), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeGotoOffset(0.1, 0.2, 0, bad), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeSkyToAxes(bad, 0.2, out), SCOPE_OK) << "a conversion answers NaN";
    EXPECT_TRUE(std::isnan(out[0]));
    ScopeSetSlewParameters(bad, 0.1, 0.1, 0.1);
    ScopeSetSlewParameters(0.1, 0.1, 0.1, bad);
    EXPECT_TRUE(std::isnan(ScopeAngularSeparation(bad, 0, 0, 0)));
    EXPECT_TRUE(std::isnan(ScopeAngularSeparation(0, bad, 0, 0)));
    EXPECT_TRUE(std::isnan(ScopeAngularSeparation(0, 0, bad, 0)));
    EXPECT_TRUE(std::isnan(ScopeAngularSeparation(0, 0, 0, bad)));
    SYSTEMTIME t = {2020, 5, 0, 5, 1, 2, 3, 4};
    EXPECT_FALSE(std::isfinite(ScopeGetSiderealTime(t, bad, 0)));
  }

  // Axes past 1 index nothing.
  for (uint32_t axis : {2u, 3u, 0xFFFFFFFFu}) {
    SCOPED_TRACE(axis);
    EXPECT_EQ(ScopeMoveAxis(axis, 0.001), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeMoveAxis(axis, 0.0), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeStopAxis(axis), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeSyncAxis(axis, 0.1), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeSetBacklash(axis, 0.01), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeSetGuideRate(axis, 0.0), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeGetAxisPosition(axis, &angle), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeGetAxisStatus(axis, &word), SCOPE_INVALID_PARAMETER);
    EXPECT_EQ(ScopeSlewAxis(axis, 0.3), SCOPE_OK) << "any nonzero axis means axis 1";
  }

  // Null pointers where the caller must give one.
  EXPECT_EQ(ScopeAlignOneStar(nullptr), SCOPE_INVALID_PARAMETER);
  EXPECT_EQ(ScopeAlignTwoStars(star, nullptr), SCOPE_INVALID_PARAMETER);
  EXPECT_EQ(ScopeAlignThreeStars(nullptr, star, star), SCOPE_INVALID_PARAMETER);
  EXPECT_EQ(ScopeGetAlignmentData(nullptr), SCOPE_INVALID_PARAMETER);
  EXPECT_EQ(ScopeSetAlignmentData(nullptr), SCOPE_INVALID_PARAMETER);
  EXPECT_EQ(ScopeSkyToAxes(0, 0, nullptr), SCOPE_INVALID_PARAMETER);
  EXPECT_EQ(ScopeGetAxisPosition(0, nullptr), SCOPE_INVALID_PARAMETER);
  EXPECT_EQ(ScopeGetAxisPositions(nullptr), SCOPE_INVALID_PARAMETER);
  EXPECT_EQ(ScopeGetSkyPosition(nullptr), SCOPE_INVALID_PARAMETER);
  EXPECT_EQ(ScopeGetHorizontalPosition(nullptr), SCOPE_INVALID_PARAMETER);
  EXPECT_EQ(ScopeGetAxisStatus(0, nullptr), SCOPE_INVALID_PARAMETER);
  EXPECT_EQ(ScopeGetMountStatus(nullptr), SCOPE_INVALID_PARAMETER);
  EXPECT_EQ(ScopeRateFirstStar(nullptr), 0);
  EXPECT_EQ(ScopeGetAlignmentQuality(nullptr), 0);
  EXPECT_EQ(ScopeGetPointingTerms(nullptr, nullptr), SCOPE_OK);
  EXPECT_EQ(ScopeRegisterBluetoothPort(0, 0, 0, nullptr), -1);

  // Integers at their extremes.
  EXPECT_EQ(ScopeSetTrackingRate(INT_MIN), SCOPE_OK);
  EXPECT_EQ(mount->trackingRate, 7.292115845221407e-05) << "unknown kinds mean sidereal";
  EXPECT_EQ(ScopeSetTracking(0xFFFFFFFFu), SCOPE_OK);
  EXPECT_EQ(ScopeSetTracking(0), SCOPE_OK);
  EXPECT_EQ(ScopeConnect(INT_MIN, 0, 0), SCOPE_ALREADY_CONNECTED);
  EXPECT_EQ(ScopeSetPortPath(-1, "/dev/null"), SCOPE_INVALID_PARAMETER);
  EXPECT_EQ(ScopeSetPortPath(INT_MAX, "/dev/null"), SCOPE_INVALID_PARAMETER);
  EXPECT_EQ(ScopeSetPortPath(9, nullptr), SCOPE_OK);

  ExpectMountSettingsFinite(*mount);
}

}  // namespace
}  // namespace scopemount
