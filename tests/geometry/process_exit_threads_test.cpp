// A host may exit at any moment, with or without disconnecting, while a
// slew, a reversing move (with its backlash take-up) or tracking runs. The
// test program runs itself as a child that starts one of those on a
// simulator and exits after a random few milliseconds; every child must
// end normally, never by a signal or an abort.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <thread>

#include "celestial/angles.h"
#include "scopemount.h"
#include "support/process.h"

namespace scopemount::testing {
namespace {

constexpr const char* PLAN_VARIABLE = "SCOPEMOUNT_EXIT_PLAN";
constexpr int CHILD_RUNS = 40;
constexpr int LONGEST_DELAY_MS = 25;

enum class Activity { Slew, ReversingMove, Tracking, COUNT };

struct ExitPlan {
  int32_t model;
  Activity activity;
  int delayMs;
  bool disconnect;
};

ExitPlan PlanOf(uint32_t seed) {
  std::mt19937 random(seed);
  const auto pick = [&random](int n) { return std::uniform_int_distribution<int>(0, n - 1)(random); };
  return {pick(2) == 0 ? SCOPE_MODEL_EQUATORIAL_SIMULATOR : SCOPE_MODEL_ALTAZ_SIMULATOR,
          static_cast<Activity>(pick(static_cast<int>(Activity::COUNT))),
          pick(LONGEST_DELAY_MS + 1), pick(2) == 0};
}

void Begin(Activity activity) {
  switch (activity) {
    case Activity::Slew:
      ScopeGotoAxes(1.0, 0.6);
      break;
    case Activity::ReversingMove:
      // A long take-up: the move reverses the axis's last (positive) way.
      ScopeSetBacklash(0, 0.03);
      ScopeMoveAxis(0, -SIDEREAL_RATE);
      break;
    case Activity::Tracking:
      ScopeSetBacklash(0, 0.03);
      ScopeSetBacklash(1, 0.03);
      ScopeSetTracking(1);
      break;
    case Activity::COUNT:
      break;
  }
}

// The child's part: runs only when the parent passes a plan.
TEST(ProcessExit, Child) {
  const char* plan = std::getenv(PLAN_VARIABLE);
  if (plan == nullptr) GTEST_SKIP() << "run by ProcessExit.AtAnyMomentIsNormal";
  const ExitPlan p = PlanOf(static_cast<uint32_t>(std::strtoul(plan, nullptr, 10)));
  if (ScopeConnect(p.model, 0.6, 100.0) != SCOPE_OK) std::exit(3);
  // A host thread that keeps polling positions through the exit, as a
  // display would: the library's clock must still be there for it. (Calls
  // from two threads are only allowed while nobody disconnects.)
  if (!p.disconnect) {
    std::thread([] {
      double angles[2];
      for (;;) ScopeGetAxisPositions(angles);
    }).detach();
  }
  Begin(p.activity);
  // The random moment of the exit (not a wait for anything).
  std::this_thread::sleep_for(std::chrono::milliseconds(p.delayMs));
  if (p.disconnect) ScopeDisconnect();
  std::fflush(nullptr);
  std::exit(0);
}

TEST(ProcessExit, AtAnyMomentIsNormal) {
  const uint32_t base = std::random_device{}();
  for (int run = 0; run < CHILD_RUNS; ++run) {
    const uint32_t seed = base + static_cast<uint32_t>(run);
    const ProcessResult child =
        RunProcess("/proc/self/exe", {"--gtest_filter=ProcessExit.Child"}, "",
                   {std::string(PLAN_VARIABLE) + "=" + std::to_string(seed)});
    ASSERT_EQ(child.exitStatus, 0) << "plan seed " << seed << " ended abnormally:\n" << child.err;
  }
}

}  // namespace
}  // namespace scopemount::testing
