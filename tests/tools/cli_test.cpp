#include <gtest/gtest.h>

#include <string>

#include "support/process.h"

namespace {

using scopemount::testing::ProcessResult;
using scopemount::testing::RunProcess;

ProcessResult Cli(const std::vector<std::string>& arguments, const std::string& locale = "C") {
  return RunProcess(SCOPEMOUNT_CLI_PATH, arguments, "", {"LC_ALL=" + locale});
}

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

TEST(Cli, ModelsAndCodesInTheUsersLanguage) {
  const ProcessResult models = Cli({"models"});
  EXPECT_EQ(models.exitStatus, 0) << models.err;
  EXPECT_TRUE(Contains(models.out, " 7  Alt/Az Mount Simulator\n")) << models.out;
  EXPECT_TRUE(Contains(models.out, "11  Dravic Quillo-2 Alt/Az Mount\n")) << models.out;

  const ProcessResult chinese = Cli({"models"}, "zh_CN.UTF-8");
  EXPECT_TRUE(Contains(chinese.out, " 6  仿真赤道仪\n")) << chinese.out;

  const ProcessResult codes = Cli({"codes"}, "zh_TW.UTF-8");
  EXPECT_EQ(codes.exitStatus, 0);
  EXPECT_TRUE(Contains(codes.out, "  3  尚未連接到望遠鏡\n")) << codes.out;
  EXPECT_TRUE(Contains(Cli({"codes"}).out, "105  User interrupt\n"));
}

TEST(Cli, SiderealTimeOfAGivenMoment) {
  const ProcessResult r = Cli({"sidereal-time", "--at", "1987-04-10 19:21:00", "--utc-offset", "0"});
  EXPECT_EQ(r.exitStatus, 0) << r.err;
  EXPECT_TRUE(Contains(r.out, "08h 34m 57.08")) << r.out;
  // The same moment as a local time two hours ahead, with daylight saving.
  const ProcessResult local =
      Cli({"sidereal-time", "--at", "1987-04-10T21:21", "--utc-offset", "1", "--dst"});
  EXPECT_TRUE(Contains(local.out, "08h 34m 57.08")) << local.out;
  const ProcessResult withLongitude = Cli({"sidereal-time", "--at", "1987-04-10 19:21:00",
                                           "--utc-offset", "0", "--longitude", "15"});
  EXPECT_TRUE(Contains(withLongitude.out, "09h 34m 57.08")) << withLongitude.out;
  EXPECT_EQ(Cli({"sidereal-time"}).exitStatus, 0) << "now";
}

TEST(Cli, SeparationInDegreesOrRadians) {
  ProcessResult r = Cli({"separation", "0", "0", "90", "0"});
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_EQ(r.out, "90.000000000\n");
  r = Cli({"separation", "--radians", "0", "0", "1", "0"});
  EXPECT_EQ(r.out, "1.000000000\n");
  r = Cli({"separation", "--", "10", "-20", "10", "-20"});
  EXPECT_EQ(r.out, "0.000000000\n");
}

TEST(Cli, BadArgumentsSayWhatIsWrongAndFail) {
  ProcessResult r = Cli({"separation", "0", "0", "north", "0"});
  EXPECT_NE(r.exitStatus, 0);
  EXPECT_TRUE(Contains(r.err, "LON2")) << r.err;
  r = Cli({"separation", "0", "0"});
  EXPECT_NE(r.exitStatus, 0);
  r = Cli({"sidereal-time", "--at", "1987-13-01 00:00"});
  EXPECT_NE(r.exitStatus, 0);
  EXPECT_TRUE(Contains(r.err, "--at")) << r.err;
  r = Cli({"sidereal-time", "--utc-offset", "99"});
  EXPECT_NE(r.exitStatus, 0);
  r = Cli({"no-such-command"});
  EXPECT_NE(r.exitStatus, 0);
  EXPECT_TRUE(Contains(r.err, "no-such-command")) << r.err;
  r = Cli({"--help"});
  EXPECT_EQ(r.exitStatus, 0);
  EXPECT_TRUE(Contains(r.out, "sidereal-time")) << r.out;
}

}  // namespace
