// Connecting and disconnecting at random moments through the exported
// functions, while slews, take-overs, backlash take-ups and tracking run:
// nothing crashes, no worker outlives its mount's memory (the sanitizers
// watch), every mount is freed, and every disconnect returns within the
// waits of the design.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <thread>

#include "scopemount.h"
#include "support/fast_clock.h"
#include "support/test_mount.h"

namespace scopemount {
namespace {

using testing::ConnectedTestMount;
using testing::Geometry;
using testing::ScopedFastClock;
using testing::ScopedTestModel;
using testing::TestMount;
using testing::WaitUntil;

constexpr int ROUNDS = 300;
constexpr int32_t EQUATORIAL_MODEL = 6;
constexpr int32_t ALTAZ_MODEL = 7;
// The Alt/Az loop's halt and the motion worker's give-up, back to back.
constexpr uint64_t LONGEST_DISCONNECT_MS = 3000 + 2000;

class Stress {
 public:
  explicit Stress(uint32_t seed) : random_(seed) {}

  double Uniform(double low, double high) {
    return std::uniform_real_distribution<double>(low, high)(random_);
  }
  int Pick(int count) { return std::uniform_int_distribution<int>(0, count - 1)(random_); }

  // Starts one kind of work that takes time on the connected mount.
  void StartSomething() {
    switch (Pick(6)) {
      case 0:
        ScopeGotoEquatorial(Uniform(-1.0, 1.0), Uniform(0.0, 0.6));
        break;
      case 1:
        ScopeGotoHorizontal(Uniform(-3.0, 3.0), Uniform(0.2, 1.0));
        break;
      case 2:  // slow and reversing: a backlash take-up first
        ScopeMoveAxis(static_cast<uint32_t>(Pick(2)), Uniform(-0.001, -0.0001));
        break;
      case 3:
        ScopeSetTracking(1);
        break;
      case 4: {
        const double star[4] = {0.3, 0.4, Uniform(-0.5, 0.5), Uniform(0.1, 0.9)};
        ScopeAlignOneStar(star);  // starts tracking
        break;
      }
      default:  // a second GOTO takes over from the first
        ScopeGotoEquatorial(Uniform(-1.0, 1.0), Uniform(0.0, 0.6));
        ScopeGotoAxes(Uniform(-1.0, 1.0), Uniform(-0.5, 0.5));
        break;
    }
  }

  // Polls like a host for a random while, so the disconnect falls at a
  // random moment of the work.
  void PollAWhile() {
    const auto until = std::chrono::steady_clock::now() + std::chrono::microseconds(Pick(15000));
    uint32_t status = 0;
    double angles[2];
    while (std::chrono::steady_clock::now() < until) {
      ScopeGetMountStatus(&status);
      ScopeGetAxisPositions(angles);
      std::this_thread::sleep_for(std::chrono::microseconds(300));
    }
  }

 private:
  std::mt19937 random_;
};

TEST(DisconnectStress, AtRandomMomentsOfEveryKindOfWork) {
  ScopedFastClock fast(20.0);
  ScopedTestModel equatorial(EQUATORIAL_MODEL, Geometry::Equatorial);
  ScopedTestModel altaz(ALTAZ_MODEL, Geometry::AltAz);
  Stress stress(20240611);
  uint64_t slowest = 0;
  for (int round = 0; round < ROUNDS; ++round) {
    const int32_t model = stress.Pick(2) == 0 ? EQUATORIAL_MODEL : ALTAZ_MODEL;
    ASSERT_EQ(ScopeConnect(model, 0.6, 100), SCOPE_OK) << "round " << round;
    ASSERT_EQ(ScopeSetBacklash(0, 0.01), SCOPE_OK);
    ASSERT_EQ(ScopeSetBacklash(1, 0.01), SCOPE_OK);
    ConnectedTestMount()->axisDirection[1] = 0;  // tracking reverses axis 1 too
    stress.StartSomething();
    if (stress.Pick(3) == 0) stress.StartSomething();
    stress.PollAWhile();
    const uint64_t before = fast.NowMs();
    ASSERT_EQ(ScopeDisconnect(), SCOPE_OK);
    slowest = std::max(slowest, fast.NowMs() - before);
    EXPECT_EQ(ScopeGetMountStatus(nullptr), SCOPE_NOT_CONNECTED);
  }
  EXPECT_LE(slowest, LONGEST_DISCONNECT_MS) << "test-clock ms of the slowest disconnect";
  EXPECT_TRUE(WaitUntil([] { return TestMount::liveCount == 0; }))
      << TestMount::liveCount << " mounts never freed";
  std::printf("slowest disconnect: %llu test-clock ms\n", static_cast<unsigned long long>(slowest));
}

}  // namespace
}  // namespace scopemount
