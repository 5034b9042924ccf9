// The Windows back end of the platform layer, where it differs from the
// POSIX one: port names and thread priorities. The ordinal host checks the
// rest: Bluetooth registration failing cleanly, and (its dump agreeing with
// the Linux build's) the texts following the thread's language.
#include <gtest/gtest.h>

#include <atomic>
#include <string>

#include "platform/port_names.h"
#include "platform/serial_device.h"
#include "platform/thread.h"
#include "support/fast_clock.h"
#include "support/selected_port.h"

namespace scopemount::platform {
namespace {

using scopemount::testing::PathOf;

TEST(WindowsPortNames, ComNamesAndTheDeviceNamespaceFromTen) {
  EXPECT_EQ(PathOf(0), "COM0");
  EXPECT_EQ(PathOf(9), "COM9");
  EXPECT_EQ(PathOf(10), R"(\\.\COM10)") << "COM10 and up open only in the device namespace";
  EXPECT_EQ(PathOf(255), R"(\\.\COM255)");
  ASSERT_TRUE(BindPortPath(7, R"(\\.\CNCA0)"));
  EXPECT_EQ(PathOf(7), R"(\\.\CNCA0)");
  ASSERT_TRUE(BindPortPath(7, nullptr));
  EXPECT_EQ(PathOf(7), "COM7");
  EXPECT_EQ(OpenSerialDevice(R"(\\.\COM254)"), nullptr) << "an absent port does not open";
}

struct PriorityProbe {
  std::atomic<int> seen{THREAD_PRIORITY_ERROR_RETURN};
};

uint32_t RecordPriority(void* parameter) {
  static_cast<PriorityProbe*>(parameter)->seen.store(GetThreadPriority(GetCurrentThread()));
  return 0;
}

TEST(WindowsThreads, WorkersRunAtTheirPriorityFromTheStart) {
  const struct {
    ThreadPriority priority;
    int expected;
  } cases[] = {{ThreadPriority::Highest, THREAD_PRIORITY_HIGHEST},
               {ThreadPriority::AboveNormal, THREAD_PRIORITY_ABOVE_NORMAL},
               {ThreadPriority::Normal, THREAD_PRIORITY_NORMAL}};
  for (const auto& c : cases) {
    PriorityProbe probe;
    ASSERT_TRUE(StartThread(RecordPriority, &probe, c.priority));
    EXPECT_TRUE(scopemount::testing::WaitUntil(
        [&] { return probe.seen.load() == c.expected; }))
        << "priority " << static_cast<int>(c.priority) << " seen as " << probe.seen.load();
  }
}

}  // namespace
}  // namespace scopemount::platform
