// The mount core on a test mount with no worker: settings, conversions,
// the mount state and the saved alignment record.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "mount/alignment_record.h"
#include "mount/mount.h"
#include "support/angles.h"
#include "support/test_mount.h"

namespace scopemount {
namespace {

using namespace testing;

constexpr double NaN = std::numeric_limits<double>::quiet_NaN();

// Each setting on a new mount: its default, the checks in their order (a
// refused value leaves the one before) and what it stores.
TEST(MountCore, SettingsFromTheirDefaults) {
  TestMount mount(Geometry::Equatorial, 3);
  EXPECT_EQ(mount.modelId, 3);
  EXPECT_TRUE(mount.workerIdleEvent.IsSignalled()) << "no worker holds the axes";
  EXPECT_EQ(mount.guideRate[0], 3.646057922610703e-05) << "half sidereal by default";
  EXPECT_EQ(mount.gotoTolerance, 0.0005817764173314432) << "1/30 degree by default";

  EXPECT_EQ(mount.SetSite(PI / 2 + 1e-9, 0), InvalidParameter);
  EXPECT_EQ(mount.latitude, 0.5235987755982988) << "a refused latitude leaves the default";
  EXPECT_EQ(mount.SetSite(-0.5, 9000), InvalidParameter);
  EXPECT_EQ(mount.latitude, -0.5) << "the latitude is taken before the elevation check";
  EXPECT_LT(mount.trackingRate, 0.0) << "southern equatorial sites track backwards";
  EXPECT_EQ(mount.SetSite(0.2, 8848), Ok);
  EXPECT_GT(mount.trackingRate, 0.0);
  EXPECT_EQ(mount.elevation, 8848);
  TestMount altaz(Geometry::AltAz, 7);
  EXPECT_EQ(altaz.SetSite(-0.5, 0), Ok);
  EXPECT_GT(altaz.trackingRate, 0.0) << "Alt/Az mounts keep the sign";

  EXPECT_EQ(mount.altitudeUpperLimit, 1.3089969389957472) << "75 degrees by default";
  EXPECT_EQ(mount.SetAltitudeLimits(0, 2.0), Ok);
  EXPECT_EQ(mount.altitudeUpperLimit, PI / 2) << "clipped to the zenith";
  EXPECT_EQ(mount.SetAltitudeLimits(0, PI / 4), InvalidParameter) << "upper must exceed pi/4";
  EXPECT_EQ(mount.SetAltitudeLimits(-PI / 6, 1.2), InvalidParameter);
  EXPECT_EQ(mount.altitudeUpperLimit, 1.2) << "upper stays set when the lower is refused";
  EXPECT_EQ(mount.altitudeLowerLimit, 0.0);

  EXPECT_EQ(mount.SetBacklash(0, 0), Ok);
  EXPECT_EQ(mount.backlashTime[0], 0u);
  EXPECT_EQ(mount.SetBacklash(1, 2 * DEG), Ok);
  EXPECT_EQ(mount.backlashTime[1], 7479u) << "truncated milliseconds at 64x sidereal";
  EXPECT_EQ(mount.SetBacklash(0, -1e-9), InvalidParameter);

  EXPECT_EQ(mount.SetGuideRate(0, SIDEREAL_RATE), Ok);
  EXPECT_EQ(mount.SetGuideRate(1, -SIDEREAL_RATE), Ok);
  EXPECT_EQ(mount.SetGuideRate(0, SIDEREAL_RATE * 1.0000001), InvalidParameter);

  EXPECT_EQ(mount.SetTrackingRate(7), Ok);
  EXPECT_EQ(mount.trackingRate, SIDEREAL_RATE);
  EXPECT_EQ(mount.SetTrackingRate(1), Ok);
  EXPECT_EQ(mount.trackingRate, 7.023457754504344e-05);
  EXPECT_EQ(mount.SetTrackingRate(2), Ok);
  EXPECT_EQ(mount.trackingRate, 7.27220521664304e-05);
}

// The terms and the way back are checked on the simulators.
TEST(MountCore, SkyToAxesReducesTheHourAngleAndCanLeaveTheTermsOff) {
  TestMount mount;
  AnglePair sky{-7.0, 0.4};  // east of the meridian: not mirrored
  AnglePair axes;
  mount.SkyToAxes(&sky, &axes, 1);
  EXPECT_DOUBLE_EQ(sky.lon, 2 * PI - 7.0) << "the caller's hour angle is reduced in place";
  EXPECT_NEAR(axes.lon, 2 * PI - 7.0, 1e-15) << "identity matrices, no terms";
  EXPECT_NEAR(axes.lat, 0.4, 1e-15);

  mount.pointing.Update([](PointingSnapshot& m) {
    m.indexError = 0.01;
    m.coneError = 0.002;
  });
  sky = {-0.5, 0.6};
  mount.SkyToAxes(&sky, &axes, 0);
  EXPECT_NEAR(axes.lon, -0.5, 1e-15) << "terms off";
  EXPECT_NEAR(axes.lat, 0.6, 1e-15);
}

TEST(MountCore, MountStateFollowsAxesAndFlagsAndOnlyStandingAxesSync) {
  TestMount mount;
  mount.slewActive = 1;
  EXPECT_EQ(MountStatus(mount), STATE_SLEWING) << "a slew worker runs";
  mount.slewActive = 0;
  ASSERT_EQ(mount.SlewAxisTo(1, 1.0), Ok);
  EXPECT_EQ(MountStatus(mount), STATE_SLEWING) << "an axis reports slewing";

  ASSERT_EQ(mount.SetAxisRate(1, -1e-9), Ok);
  mount.axisRunFlag[1] = 1;
  EXPECT_EQ(MountStatus(mount), STATE_MOVING) << "running with a run flag is a manual move";
  mount.axisRunFlag[1] = 0;
  EXPECT_EQ(MountStatus(mount), STATE_TRACKING) << "running without a run flag is tracking";

  ASSERT_EQ(mount.StopAxisMotor(1), Ok);
  const size_t stops = mount.Commands(Command::Stop).size();
  EXPECT_EQ(MountStatus(mount), STATE_TRACKING)
      << "a tracking mount whose axes stand stays tracking";
  EXPECT_EQ(mount.StopTracking(), Ok);
  EXPECT_EQ(mount.Commands(Command::Stop).size(), stops + 2)
      << "stopping tracking stops both motors";
  EXPECT_EQ(MountStatus(mount), STATE_IDLE);

  EXPECT_EQ(mount.MoveAxis(0, 0.0), Ok);
  EXPECT_EQ(mount.Commands(Command::Stop).size(), stops + 3) << "a zero rate stops the axis";
  EXPECT_EQ(mount.axisRunFlag[0], 0u);

  // Only a standing axis is synced (home itself is checked on the simulators).
  EXPECT_EQ(mount.SyncAxis(1, 7.0), Ok);
  EXPECT_DOUBLE_EQ(mount.TrueAngle(1), 7.0 - 2 * PI) << "synced angle is reduced";
  ASSERT_EQ(mount.SetAxisRate(0, -1e-9), Ok);
  EXPECT_EQ(mount.SyncAxis(0, 0.3), AxisBusy);
  EXPECT_NEAR(mount.TrueAngle(0), 0.0, 1e-6) << "a moving axis is not synced";
}

// --- The saved alignment record ------------------------------------------

AlignmentRecordFields SampleFields() {
  AlignmentRecordFields f;
  f.modelId = 7;
  f.pointing.skyToAxes.at(0, 1) = 0.25;
  f.pointing.axesToSky.at(2, 2) = -1.0;
  f.pointing.indexError = 1.0;
  f.pointing.coneError = -2.0;
  f.pointing.nonPerpError = 0.5;
  f.misalignment = 0.125;
  f.alignmentQuality = 100;
  f.aligned = 1;
  return f;
}

// Little-endian fields of the record, decoded by hand.
uint64_t Bytes(const uint8_t* record, int offset, int count) {
  uint64_t value = 0;
  for (int i = count - 1; i >= 0; --i) value = value << 8 | record[offset + i];
  return value;
}
double DoubleAt(const uint8_t* record, int offset) {
  const uint64_t bits = Bytes(record, offset, 8);
  double value;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

TEST(AlignmentRecord, ExactBytes) {
  uint8_t record[ALIGNMENT_RECORD_SIZE];
  std::memset(record, 0xAB, sizeof record);
  EncodeAlignmentRecord(SampleFields(), record);
  EXPECT_EQ(Bytes(record, 0, 4), 7u) << "modelId";
  EXPECT_EQ(Bytes(record, 4, 4), 0xABABABABu) << "bytes 4-7 untouched";
  EXPECT_EQ(DoubleAt(record, 8), 1.0) << "skyToAxes[0][0]";
  EXPECT_EQ(DoubleAt(record, 16), 0.25) << "skyToAxes[0][1]: row-major";
  EXPECT_EQ(DoubleAt(record, 80 + 64), -1.0) << "axesToSky[2][2]";
  EXPECT_EQ(DoubleAt(record, 152), 1.0) << "indexError";
  EXPECT_EQ(DoubleAt(record, 160), -2.0) << "coneError";
  EXPECT_EQ(DoubleAt(record, 168), 0.5) << "nonPerpError";
  EXPECT_EQ(DoubleAt(record, 176), 0.125) << "misalignment";
  EXPECT_EQ(Bytes(record, 184, 4), 100u) << "quality";
  EXPECT_EQ(Bytes(record, 188, 4), 1u) << "aligned";
  EXPECT_EQ(Bytes(record, 192, 4), 0u) << "reserved";
  uint32_t sum = 0;
  for (int i = 0; i < 196; ++i) sum += record[i];
  EXPECT_EQ(Bytes(record, 196, 4), sum) << "byte-sum checksum over 0-195";
}

// A record read back in gives the same record out: every field restored.
TEST(AlignmentRecord, RoundTripAndEveryCorruptionRefused) {
  uint8_t record[ALIGNMENT_RECORD_SIZE] = {};
  EncodeAlignmentRecord(SampleFields(), record);
  TestMount later(Geometry::AltAz, 7);
  ASSERT_EQ(later.SetAlignmentData(record), Ok);
  uint8_t again[ALIGNMENT_RECORD_SIZE] = {};
  ASSERT_EQ(later.GetAlignmentData(again), 200);
  for (size_t i = 0; i < ALIGNMENT_RECORD_SIZE; ++i) {
    EXPECT_EQ(again[i], record[i]) << "byte " << i;
  }

  for (int i = 0; i < 196; ++i) {
    uint8_t corrupt[ALIGNMENT_RECORD_SIZE];
    std::memcpy(corrupt, record, sizeof corrupt);
    corrupt[i] ^= 0x01;
    TestMount target(Geometry::AltAz, 7);
    EXPECT_EQ(target.SetAlignmentData(corrupt), InvalidAlignmentData) << "flipped byte " << i;
    EXPECT_EQ(target.aligned, 0u) << "a refused record changes nothing, byte " << i;
  }
  TestMount otherModel(Geometry::Equatorial, 6);
  EXPECT_EQ(otherModel.SetAlignmentData(record), InvalidAlignmentData);

  // A record with a consistent checksum but a NaN inside is refused too.
  AlignmentRecordFields poisoned = SampleFields();
  poisoned.pointing.coneError = NaN;
  EncodeAlignmentRecord(poisoned, record);
  EXPECT_EQ(later.SetAlignmentData(record), InvalidAlignmentData);
  EXPECT_EQ(later.pointing.Load().coneError, -2.0);
}

TEST(MountCore, ResetAlignmentKeepsQuality) {
  TestMount mount;
  mount.aligned = 1;
  mount.alignmentQuality = 100;
  mount.misalignment = 0.3;
  mount.pointing.Update([](PointingSnapshot& m) { m.indexError = 0.1; });
  EXPECT_EQ(mount.ResetAlignment(0.01, 0.02), Ok);
  const PointingSnapshot model = mount.pointing.Load();
  EXPECT_EQ(model.indexError, 0.0);
  EXPECT_EQ(model.coneError, 0.01);
  EXPECT_EQ(model.nonPerpError, 0.02);
  EXPECT_EQ(mount.aligned, 0u);
  EXPECT_EQ(mount.misalignment, 0.0);
  EXPECT_EQ(mount.alignmentQuality, 100u) << "quality is left as it was";
}

}  // namespace
}  // namespace scopemount
