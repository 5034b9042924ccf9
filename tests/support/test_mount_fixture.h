// The fixture of the worker tests, apart from the test mount so that the
// benchmarks can use the mount without the test framework.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "support/fast_clock.h"
#include "support/test_mount.h"

namespace scopemount::testing {

// A fixture for tests of the workers: one test mount at a time on a fast
// clock; at the end every test mount must have been freed.
class TestMountTest : public ::testing::Test {
 protected:
  // Releases the mount before, then a new one at `latitude` on a new clock.
  void Make(Geometry geometry, double clockSpeed, double latitude = 0.6) {
    Release();
    fast = std::make_unique<ScopedFastClock>(clockSpeed);
    mount.reset(new TestMount(geometry));
    ASSERT_EQ(mount->SetSite(latitude, 0), Ok);
  }
  void Release() {
    if (mount) mount->HoldPositionReads(false);
    mount.reset();
    EXPECT_TRUE(WaitUntil([] { return TestMount::liveCount == 0; })) << "a mount was never freed";
    fast.reset();
  }
  void TearDown() override { Release(); }
  // No worker thread holds the mount any more.
  bool WorkersGone() const { return mount->References() == 1; }
  bool IsTracking() const { return MountStatus(*mount) == STATE_TRACKING; }
  // The rate commands on `axis` from the `from`th command on.
  std::vector<CommandRecord> Rates(uint32_t axis, size_t from = 0) const {
    return mount->Commands(Command::SetRate, axis, from);
  }
  // Waits until at least `count` of them have come.
  bool WaitForRates(uint32_t axis, size_t count, size_t from = 0) const {
    return WaitUntil([&] { return Rates(axis, from).size() >= count; });
  }

  std::unique_ptr<ScopedFastClock> fast;
  OwnedMount<TestMount> mount;
};

}  // namespace scopemount::testing
