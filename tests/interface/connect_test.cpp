// Choosing and connecting a model, the port choice, and what the exports
// do around the mount's own operations.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>

#include "interface/current_mount.h"
#include "scopemount.h"
#include "serial/port_selection.h"
#include "support/test_mount.h"

namespace scopemount {
namespace {

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
  double pair[2] = {7.0, 4.0};
  ScopeDisconnect();
  EXPECT_EQ(ScopeRateFirstStar(pair), SCOPE_NOT_CONNECTED);
  EXPECT_DOUBLE_EQ(pair[0], 7.0 - 2 * M_PI) << "normalised before the mount test";
  EXPECT_DOUBLE_EQ(pair[1], 4.0 - 2 * M_PI);
  double angle = 0;

  ScopedTestModel model(7, Geometry::Equatorial);  // identity matrices
  ASSERT_EQ(ScopeConnect(7, 0.6, 100), SCOPE_OK);
  TestMount* mount = ConnectedTestMount();
  ASSERT_NE(mount, nullptr);
  mount->captureGotoAxes = true;
  mount->PlaceAxes(0.25, -0.5);
  EXPECT_EQ(ScopeGetAxisPosition(0, &angle), SCOPE_OK);
  EXPECT_EQ(angle, 0.25);

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
