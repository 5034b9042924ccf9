// Exchanges allocate nothing: counted with the global allocator replaced in
// this program, on the exchanging thread only (the pseudo-terminal's far
// end runs on its own thread and may allocate as it likes).
#include <gtest/gtest.h>

#include <cstdlib>
#include <new>

#include "compact_controller.h"
#include "demo_controller.h"
#include "emulated_line.h"
#include "protocols/compact/compact_altaz_mounts.h"
#include "pty_host.h"
#include "serial/serial_port.h"
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

// Reads a reply of a known length, as the fixed-length protocols do.
class FixedReplyPort final : public SerialPort {
 public:
  uint32_t replyLength = 0;

 protected:
  uint32_t ReceiveReply(uint8_t* reply) override {
    return Read(reply, replyLength) == replyLength ? EXCHANGE_OK : EXCHANGE_NOT_SENT;
  }
};

// A controller model on a pseudo-terminal bound to the port the library opens.
template <typename Controller>
struct PtyLine {
  emulation::WallClock clock;
  Controller controller;
  emulation::EmulatedLine line{controller, clock};
  emulation::PtyHost host{line};
  bool started = host.Start();
  testing::SelectedPort selected{PTY_PORT, host.Path().c_str()};
};

TEST(ExchangeAllocationTest, ExchangesAllocateNothing) {
  PtyLine<emulation::DemoController> pty;
  ASSERT_TRUE(pty.started && pty.selected.bound());
  FixedReplyPort port;
  ASSERT_TRUE(port.IsOpen());
  const uint8_t command[] = "POS 0\n";
  uint8_t reply[8] = {};
  port.replyLength = 4;
  counting = true;
  uint32_t failures = 0;
  for (int i = 0; i < 50; ++i)
    failures += port.Exchange(command, sizeof command - 1, reply) != EXCHANGE_OK;
  counting = false;
  EXPECT_EQ(failures, 0u);
  EXPECT_EQ(allocations, 0u);
}

// A protocol layer's polls, reads and run commands allocate nothing either.
TEST(ExchangeAllocationTest, CompactMountOperationsAllocateNothing) {
  PtyLine<emulation::CompactController> pty;
  ASSERT_TRUE(pty.started && pty.selected.bound());
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
