#include "platform/port_names.h"

#include <gtest/gtest.h>

#include <string>

namespace scopemount::platform {
namespace {

std::string PathOf(int32_t port) {
  char buffer[MAX_PORT_PATH + 1];
  if (!PortDevicePath(port, buffer, sizeof buffer)) return "<none>";
  return buffer;
}

TEST(PortNames, BoundPathElseTheNumberedSerialDevice) {
  EXPECT_EQ(PathOf(2), "/dev/ttyS2");
  EXPECT_EQ(PathOf(255), "/dev/ttyS255");
  EXPECT_EQ(PathOf(256), "<none>");
  EXPECT_EQ(PathOf(-1), "<none>");

  ASSERT_TRUE(BindPortPath(7, "/dev/pts/9"));
  EXPECT_EQ(PathOf(7), "/dev/pts/9");
  EXPECT_EQ(PathOf(8), "/dev/ttyS8") << "binding one port leaves the others";
  ASSERT_TRUE(BindPortPath(7, ""));
  EXPECT_EQ(PathOf(7), "/dev/ttyS7") << "an empty path unbinds";
  ASSERT_TRUE(BindPortPath(7, "/dev/pts/9"));
  ASSERT_TRUE(BindPortPath(7, nullptr));
  EXPECT_EQ(PathOf(7), "/dev/ttyS7") << "a null path unbinds";

  EXPECT_FALSE(BindPortPath(256, "/dev/null"));
  EXPECT_FALSE(BindPortPath(-1, "/dev/null"));
  const std::string longest(MAX_PORT_PATH, 'x');
  EXPECT_TRUE(BindPortPath(3, longest.c_str()));
  EXPECT_EQ(PathOf(3), longest);
  EXPECT_FALSE(BindPortPath(3, (longest + "x").c_str())) << "too long for the table";
  EXPECT_EQ(PathOf(3), longest) << "a refused path changes nothing";
  BindPortPath(3, nullptr);
}

}  // namespace
}  // namespace scopemount::platform
