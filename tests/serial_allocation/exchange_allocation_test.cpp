// Exchanges allocate nothing: counted with the global allocator replaced in
// this program, on the exchanging thread only (the pseudo-terminal's far
// end runs on its own thread and may allocate as it likes).
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "compact_controller.h"
#include "emulated_line.h"
#include "protocols/compact/compact_altaz_mounts.h"
#include "pty_host.h"
#include "support/selected_port.h"

namespace {

thread_local bool counting = false;
thread_local size_t allocations = 0;

void* Allocate(size_t size) {
  if (counting) ++allocations;
  if (void* memory = std::malloc(size == 0 ? 1 : size)) return memory;
  throw std::bad_alloc();
}

}  // namespace

void* operator new(size_t size) { return Allocate(size); }
void* operator new[](size_t size) { return Allocate(size); }
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete[](void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, size_t) noexcept { std::free(memory); }
void operator delete[](void* memory, size_t) noexcept { std::free(memory); }

namespace scopemount {
namespace {

constexpr int32_t PTY_PORT = 41;

// A protocol layer's exchanges (polls, reads and run commands) allocate nothing.
TEST(ExchangeAllocationTest, CompactMountOperationsAllocateNothing) {
  // The controller on a pseudo-terminal bound to the port the library opens.
  emulation::WallClock clock;
  emulation::CompactController controller;
  emulation::EmulatedLine line(controller, clock);
  emulation::PtyHost host(line);
  ASSERT_TRUE(host.Start());
  testing::SelectedPort selected(PTY_PORT, host.Path().c_str());
  ASSERT_TRUE(selected.bound());
  OwnedMount<CompactMount> mount(new CompactAltAzMountSmall);
  ASSERT_EQ(mount->OpenMount(), Ok);
  counting = true;
  int32_t failures = 0;
  for (int i = 0; i < 10; ++i) {
    double angle = 0.0;
    failures += mount->GetAxisPosition(0, &angle) != Ok;
    failures += mount->GetAxisPosition(1, &angle) != Ok;
    failures += mount->SetAxisRate(0, SIDEREAL_RATE) != Ok;
    failures += mount->SetAxisRate(1, -SIDEREAL_RATE) != Ok;
    failures += mount->SlewAxisTo(0, 0.001 * i) != Ok;
    failures += mount->ReadAxisStatus(0) != Ok;
    failures += mount->StopAxisMotor(0) != Ok;
  }
  counting = false;
  EXPECT_EQ(failures, 0);
  EXPECT_EQ(allocations, 0u);
}

}  // namespace
}  // namespace scopemount
