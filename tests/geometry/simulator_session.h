// Driving the simulators the way an application does: through the C
// boundary, on a fast test clock, waiting on conditions with real-time
// deadlines.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>

#include "celestial/angles.h"
#include "interface/current_mount.h"
#include "mount/mount.h"
#include "mount/mount_error.h"
#include "platform/clock.h"
#include "scopemount.h"
#include "support/angles.h"
#include "support/controller_bench.h"
#include "support/fast_clock.h"

namespace scopemount::testing {

inline constexpr double ALTAZ_TOLERANCE = 0.0008726646259971648;      // 0.05 degree
inline constexpr double EQUATORIAL_TOLERANCE = 0.0005817764173314432;  // 1/30 degree

inline const char* ModelName(int32_t model) {
  return model == SCOPE_MODEL_EQUATORIAL_SIMULATOR ? "Equatorial" : "AltAz";
}

// Runs a test on both simulators, named after them.
inline const auto BOTH_SIMULATORS =
    ::testing::Values(SCOPE_MODEL_EQUATORIAL_SIMULATOR, SCOPE_MODEL_ALTAZ_SIMULATOR);
inline std::string SimulatorName(const ::testing::TestParamInfo<int32_t>& info) {
  return ModelName(info.param);
}

inline double GotoToleranceOf(int32_t model) {
  return model == SCOPE_MODEL_ALTAZ_SIMULATOR ? ALTAZ_TOLERANCE : EQUATORIAL_TOLERANCE;
}

inline uint32_t MountState() {
  uint32_t state = 0;
  EXPECT_EQ(ScopeGetMountStatus(&state), SCOPE_OK);
  return state;
}

inline uint32_t AxisStatus(uint32_t axis) {
  uint32_t status = 0;
  EXPECT_EQ(ScopeGetAxisStatus(axis, &status), SCOPE_OK);
  return status;
}

// An angle pair read through the C boundary, which must succeed.
template <typename Read>
AnglePair ReadPair(Read&& read) {
  double pair[2] = {NAN, NAN};
  EXPECT_EQ(read(pair), SCOPE_OK);
  return {pair[0], pair[1]};
}

inline AnglePair AxisPositions() { return ReadPair(ScopeGetAxisPositions); }
inline AnglePair SkyPosition() { return ReadPair(ScopeGetSkyPosition); }
inline AnglePair HorizontalPosition() { return ReadPair(ScopeGetHorizontalPosition); }
inline AnglePair SkyToAxes(AnglePair sky) {
  return ReadPair([sky](double* axes) { return ScopeSkyToAxes(sky.lon, sky.lat, axes); });
}

inline uint32_t Tick() { return platform::TickCount(); }

// Test-clock seconds from `from` to `to`.
inline double SecondsBetween(uint32_t from, uint32_t to) {
  return static_cast<double>(to - from) / 1000.0;
}

// `sky` as the sky has turned `seconds` later.
inline AnglePair Turned(AnglePair sky, double seconds) {
  return {NormalizeAngle(sky.lon + SIDEREAL_RATE * seconds), sky.lat};
}

// Where the mount points, and the test-clock ticks just before and after
// the reading: the sky turns while a thread is descheduled, so a check
// against a moving position allows for the time the reading took.
struct TimedReading {
  AnglePair sky;
  uint32_t before;
  uint32_t after;
  double Slack() const { return SIDEREAL_RATE * SecondsBetween(before, after); }
};

inline TimedReading ReadSky() {
  TimedReading reading;
  reading.before = Tick();
  reading.sky = SkyPosition();
  reading.after = Tick();
  return reading;
}

// Distance of a reading from a sky position that was at `sky` at tick
// `since` and has turned with the sky, less what the reading's own
// duration excuses.
inline double TrackedError(const TimedReading& reading, AnglePair sky, uint32_t since) {
  return Separation(reading.sky, Turned(sky, SecondsBetween(since, reading.before))) -
         reading.Slack();
}

// Waits until the mount reports tracking; polling the state while the
// tracking starter runs must not cancel it.
inline bool WaitForTracking() {
  return WaitUntil([] { return MountState() == SCOPE_STATE_TRACKING; });
}

// Waits until no worker thread holds the connected mount: every motion
// started so far has ended (an Alt/Az tracking loop counts as a worker).
inline bool WaitForWorkers() {
  return WaitUntil([] { return CurrentMount()->References() == 1; });
}

// Waits until `ms` of test-clock time have passed.
inline void WaitTestTime(uint32_t ms) {
  const uint32_t start = Tick();
  ASSERT_TRUE(WaitUntil([&] { return Tick() - start >= ms; }, std::chrono::seconds(60)));
}

// A connection to one simulator on a fast clock; disconnects at the end,
// before the clock goes.
class SimulatorSession {
 public:
  SimulatorSession(int32_t model, double latitude, double speed) : clock_(speed) {
    ScopeDisconnect();
    EXPECT_EQ(ScopeConnect(model, latitude, 100.0), SCOPE_OK);
  }
  ~SimulatorSession() { DisconnectOnceWorkersEnd(); }

 private:
  ScopedFastClock clock_;
};

}  // namespace scopemount::testing
