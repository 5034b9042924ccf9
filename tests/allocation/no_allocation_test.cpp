// Once a mount is connected the library allocates nothing but what starting
// a worker thread costs: status polls, conversions, GOTO passes, tracking
// cycles and alignment fits all run on memory that exists already. This
// program replaces the global allocation functions to count every
// allocation in the process while the work runs.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <new>

#include "platform/thread.h"
#include "scopemount.h"
#include "support/fast_clock.h"
#include "support/test_mount.h"

namespace {

std::atomic<bool> counting{false};
std::atomic<uint64_t> allocations{0};

void* Allocate(std::size_t size) {
  if (counting.load(std::memory_order_relaxed)) allocations.fetch_add(1);
  void* p = std::malloc(size == 0 ? 1 : size);
  if (p == nullptr) throw std::bad_alloc();
  return p;
}

void* AllocateAligned(std::size_t size, std::align_val_t alignment) {
  if (counting.load(std::memory_order_relaxed)) allocations.fetch_add(1);
  const auto align = static_cast<std::size_t>(alignment);
  void* p = std::aligned_alloc(align, (size + align - 1) / align * align);
  if (p == nullptr) throw std::bad_alloc();
  return p;
}

}  // namespace

void* operator new(std::size_t size) { return Allocate(size); }
void* operator new[](std::size_t size) { return Allocate(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  try {
    return Allocate(size);
  } catch (...) {
    return nullptr;
  }
}
void* operator new[](std::size_t size, const std::nothrow_t& tag) noexcept {
  return operator new(size, tag);
}
void* operator new(std::size_t size, std::align_val_t a) { return AllocateAligned(size, a); }
void* operator new[](std::size_t size, std::align_val_t a) { return AllocateAligned(size, a); }
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, std::size_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t) noexcept { std::free(p); }
void operator delete(void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, std::align_val_t) noexcept { std::free(p); }
void operator delete(void* p, std::size_t, std::align_val_t) noexcept { std::free(p); }
void operator delete[](void* p, std::size_t, std::align_val_t) noexcept { std::free(p); }

namespace scopemount {
namespace {

using testing::Command;
using testing::ConnectedTestMount;
using testing::Geometry;
using testing::ScopedFastClock;
using testing::ScopedTestModel;
using testing::TestMount;
using testing::WaitUntil;

uint32_t NoWork(void*) { return 0; }

// What one thread start allocates on the starting thread.
uint64_t AllocationsPerThreadStart() {
  const uint64_t before = allocations;
  counting = true;
  const bool started = platform::StartThread(&NoWork, nullptr, platform::ThreadPriority::Normal);
  counting = false;
  EXPECT_TRUE(started);
  return allocations - before;
}

// Star observations as the connected mount's nominal model sees them.
void Observe(double ha, double dec, double* star) {
  star[0] = ha;
  star[1] = dec;
  ScopeSkyToAxes(ha, dec, star + 2);
}

// Everything a host does with a connected mount, on either geometry.
// Returns false if some step did not happen in time (checked after the
// count, since a failing assertion allocates).
bool RunEverything(TestMount& mount, const double (&stars)[3][4]) {
  uint32_t status = 0;
  double pair[2];
  bool ok = true;
  for (int i = 0; i < 200; ++i) {
    ScopeGetMountStatus(&status);
    ScopeGetAxisStatus(1, &status);
    ScopeGetAxisPositions(pair);
    ScopeGetSkyPosition(pair);
    ScopeGetHorizontalPosition(pair);
    ScopeSkyToAxes(0.3, 0.4, pair);
  }
  ok = ok && ScopeAlignTwoStars(stars[0], stars[1]) == SCOPE_OK;
  ok = ok && ScopeAlignThreeStars(stars[0], stars[1], stars[2]) == SCOPE_OK;
  // A GOTO (several passes) that ends in tracking, tracking cycles, a
  // horizontal GOTO that interrupts it, and manual motion with a take-up.
  ok = ok && ScopeGotoEquatorial(0.4, 0.3) == SCOPE_OK;
  // Equatorial tracking sets its rate once; the Alt/Az loop every cycle.
  const size_t trackingRates = mount.geometry == Geometry::AltAz ? 3 : 1;
  ok = ok && WaitUntil([&] { return mount.CommandCount(Command::SetRate, 0) >= trackingRates; });
  ok = ok && ScopeGotoHorizontal(1.0, 0.5) == SCOPE_OK;
  ok = ok && WaitUntil([&] { return mount.SlewFinished(); });
  mount.backlashTime[1] = 100;
  mount.axisDirection[1] = 1;
  ok = ok && ScopeMoveAxis(1, -0.001) == SCOPE_OK;
  ok = ok && WaitUntil([&] { return mount.CommandCount(Command::SetRate, 1) >= 2; });
  ok = ok && ScopeStopAxis(1) == SCOPE_OK;
  ok = ok && WaitUntil([&] { return mount.References() == 1; });
  return ok;
}

TEST(NoAllocationAfterConnect, PollsConversionsGotosTrackingAndFits) {
  ScopedFastClock fast(300.0);
  ScopedTestModel equatorial(6, Geometry::Equatorial);
  ScopedTestModel altaz(7, Geometry::AltAz);
  const uint64_t perThread = AllocationsPerThreadStart();
  for (int32_t model : {6, 7}) {
    SCOPED_TRACE(model);
    ASSERT_EQ(ScopeConnect(model, 0.6, 100), SCOPE_OK);
    TestMount* mount = ConnectedTestMount();
    ASSERT_NE(mount, nullptr);
    double stars[3][4];
    Observe(-1.2, 0.3, stars[0]);
    Observe(0.9, 0.1, stars[1]);
    Observe(0.2, 1.0, stars[2]);
    const uint32_t startsBefore = mount->workerStarts;

    const uint64_t before = allocations;
    counting = true;
    const bool done = RunEverything(*mount, stars);
    counting = false;
    const uint64_t counted = allocations - before;

    EXPECT_TRUE(done) << "every step happened";
    const uint32_t starts = mount->workerStarts - startsBefore;
    EXPECT_GE(starts, 4u) << "slews, tracking and manual motion ran on workers";
    EXPECT_EQ(counted, starts * perThread)
        << starts << " worker threads at " << perThread << " allocations each";
    ASSERT_EQ(ScopeDisconnect(), SCOPE_OK);
  }
}

}  // namespace
}  // namespace scopemount
