#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstdlib>
#include <sstream>
#include <string>

#include "scopemount.h"
#include "session.h"
#include "text.h"

#include "support/process.h"

namespace {

using scopemount::testing::ChildProcess;
using scopemount::testing::Contains;
using scopemount::testing::Occurrences;
using scopemount::testing::ProcessResult;
using scopemount::testing::RunProcess;
using namespace std::chrono_literals;

ProcessResult Cli(const std::vector<std::string>& arguments, const std::string& locale = "C",
                  const std::string& input = "", const std::string& interruptWhenSeen = "") {
  return RunProcess(SCOPEMOUNT_CLI_PATH, arguments, input, {"LC_ALL=" + locale}, interruptWhenSeen);
}

// Sessions with the simulators run on the wall clock: targets are chosen so
// that slews take a few seconds.
const std::vector<std::string> GREENWICH = {"--lat", "51.4769", "--lon", "0"};

std::vector<std::string> At(std::vector<std::string> args) {
  args.insert(args.end(), GREENWICH.begin(), GREENWICH.end());
  return args;
}

// The live status lines written (between carriage returns and line ends),
// without the clearing that ends each.
std::vector<std::string> LiveLines(const std::string& screen) {
  std::vector<std::string> lines;
  std::string piece;
  for (const char c : screen) {
    if (c != '\r' && c != '\n') {
      piece += c;
      continue;
    }
    if (Contains(piece, "to go")) lines.push_back(piece.substr(0, piece.find("\x1b[K")));
    piece.clear();
  }
  return lines;
}

constexpr int EXIT_LIBRARY_ERROR = 1;
constexpr int EXIT_BAD_ARGUMENTS = 2;

// What a command prints and its exit status, in the user's language: bad
// arguments end with 2 before any connection; a library failure ends with 1
// and the library's own message; each error is said once on standard error.
// Under --json every line is one JSON object, and every event says when it
// happened.
TEST(Cli, CommandsSayWhatTheyShouldWithTheirExitStatus) {
  struct Case {
    std::vector<std::string> arguments;
    int exitStatus;
    std::string onStandardError;
    std::string onStandardOutput = "";
    std::string locale = "C";
  };
  // Sidereal time at 1987-04-10 19:21 UT: mean 8h34m57.09s, apparent 8h34m56.85s.
  const std::vector<std::string> st = {"sidereal-time", "--at", "1987-04-10 19:21:00",
                                       "--utc-offset", "0"};
  const Case cases[] = {
      {{"models"}, 0, "", " 7  simulator, no --port                     Alt/Az Mount Simulator\n"},
      {{"models"}, 0, "", "11  --port DEVICE (emulate compact)          Dravic Quillo-2"},
      {{"models"}, 0, "", " 仿真赤道仪\n", "zh_CN.UTF-8"},
      {{"codes"}, 0, "", "105  User interrupt\n"},
      {{"--version"}, 0, "", "scopemount 0.1.0\nlibrary libscopemount 0.1.0\n"},
      {{"--json", "--version"}, 0, "", "{\"program\":\"0.1.0\",\"library\":\"0.1.0\"}\n"},
      {{"--json", "models"}, 0, "",
       "{\"model\":0,\"name\":\"Marvane Alt/Az Mount\",\"works\":true,\"simulator\":false,"
       "\"needsPort\":true,\"emulate\":\"auxbus\"}\n"},
      {{"models", "--json"}, 0, "", "\"simulator\":true,\"needsPort\":false,\"emulate\":null}\n"},
      {{"--json", "codes"}, 0, "", "{\"code\":105,\"message\":\"User interrupt\"}\n"},
      {{"--json", "emulate", "--list"}, 0, "", "{\"protocol\":\"compact\",\"description\":\"compact"},
      {{"emulate", "--list"}, 0, "", "  demo         測試台的示範控制器", "zh_TW.UTF-8"},
      // The program's own texts follow the language too (a changed English
      // text would miss its translation); JSON stays as it is.
      {{"stop"}, 0, "", "已停止两轴和跟踪。\n空闲 ", "zh_CN.UTF-8"},
      {{"stop", "--axis", "0"}, 0, "", "已停止軸 0", "zh_TW.UTF-8@x"},
      {{"stop", "--axis", "1"}, 0, "", "Stopped axis 1.\n", "zh_HK.UTF-8"},  // as the library's texts
      {{"stop", "--help"}, 0, "", "  --axis 非负整数:整数，范围 [0, 1]\n", "zh_CN.UTF-8"},
      // Headings padded by the columns Chinese takes on a terminal, not by bytes.
      {{"stars"}, 0, "", "星                星等  赤经 J2000 赤纬 J2000  当日赤经   当日赤纬     时角   ",
       "zh_CN.UTF-8"},
      {{"--help"}, 0, "", "  --port 文字                 硬體托架的序列埠裝置\n", "zh_TW.UTF-8"},
      {{"stop", "--help"}, 0, "", "選項:\n  -h,--help                   顯示此說明訊息並結束\n",
       "zh_TW.UTF-8"},
      {{"--json", "status"}, 0, "", "\"status\":{\"state\":\"idle\",", "zh_TW.UTF-8"},
      {{"--json", "stop", "--axis", "0"}, 0, "", "{\"event\":\"stopped\",\"utc\":\"20"},
      {At({"--json", "goto", "--axes", "3", "2"}), 0, "",
       "\"target\":{\"frame\":\"axes\",\"axis0\":3.000000,\"axis1\":2.000000}}\n"},
      {st, 0, "", "Greenwich mean sidereal time      08h 34m 57.08"},
      {st, 0, "", "Greenwich apparent sidereal time  08h 34m 56.85"},
      // The same moment as a local time two hours ahead, with daylight saving.
      {{"sidereal-time", "--at", "1987-04-10T21:21", "--utc-offset", "1", "--dst", "--longitude",
        "15"}, 0, "", "local apparent sidereal time      09h 34m 56.85"},
      {{"--json", "sidereal-time", "--at", "1987-04-10 19:21", "--utc-offset", "0", "--longitude",
        "-15"}, 0, "", "\"localApparentHours\":7.5824588"},
      // UTC as the other commands read it: the same moment as 21:21 at UTC+2.
      {{"sidereal-time", "--at", "1987-04-10T19:21Z", "--longitude", "15"}, 0, "",
       "local apparent sidereal time      09h 34m 56.85"},
      {{"sidereal-time", "--at", "1987-04-10T19:21Z", "--dst"}, EXIT_BAD_ARGUMENTS, "is UTC"},
      {{"separation", "0", "0", "90", "0"}, 0, "", "90.000000000\n"},
      {{"separation", "--radians", "0", "0", "1", "0"}, 0, "", "1.000000000\n"},
      {{"separation", "0", "0", "north", "0"}, EXIT_BAD_ARGUMENTS, "LON2: north is not a number"},
      {{"separation", "0", "0"}, EXIT_BAD_ARGUMENTS, "LON2 is required"},
      {{"sidereal-time", "--at", "1987-02-29 00:00"}, EXIT_BAD_ARGUMENTS, "--at"},
      {{"sidereal-time", "--utc-offset", "99"}, EXIT_BAD_ARGUMENTS, "--utc-offset: 99 is outside"},
      {{"no-such-command"}, EXIT_BAD_ARGUMENTS, "no-such-command"},
      {{"stars", "--at", "2025-02-29T12:00"}, EXIT_BAD_ARGUMENTS, "2025-02-29T12:00' does not exist"},
      {{"goto", "--radec", "12", "45", "--star", "Vega"}, EXIT_BAD_ARGUMENTS,
       "scopemount: goto 需要且只能给出 --star、--radec、--hadec、--altaz、--axes 之一\n", "",
       "zh_CN.UTF-8"},
      {{"move", "0", "fast"}, EXIT_BAD_ARGUMENTS, "RATE: fast 不是數字", "", "zh_TW.UTF-8"},
      // The argument parser's own errors speak the user's language too.
      {{"--bogus"}, EXIT_BAD_ARGUMENTS, "多余的参数：--bogus\n使用 --help 查看更多说明。\n", "",
       "zh_CN.UTF-8"},
      {{"goto", "--radec", "12"}, EXIT_BAD_ARGUMENTS, "--radec：至少需要 2 個值，只給了 1 個", "",
       "zh_TW.UTF-8"},
      {{"--load", "/"}, EXIT_BAD_ARGUMENTS, "--load: / is a directory, not a file"},
      {{"goto", "--radec", "24.5", "10"}, EXIT_BAD_ARGUMENTS, "RA 24.5 is outside 0 to 24 h"},
      {{"goto", "--radec", "1", "-90:30"}, EXIT_BAD_ARGUMENTS, "Dec -90:30 is outside -90 to 90"},
      {{"goto", "--radec", "abc", "10"}, EXIT_BAD_ARGUMENTS, "RA 'abc' is not a number"},
      {{"goto", "--hadec", "13", "0"}, EXIT_BAD_ARGUMENTS, "HA 13 is outside -12 to 12 h"},
      {{"goto", "--altaz", "-10", "5"}, EXIT_BAD_ARGUMENTS, "Az -10 is outside 0 to 360 deg"},
      {{"goto", "--star", "Vega", "--of-date"}, EXIT_BAD_ARGUMENTS, "--of-date goes with --radec"},
      {{"goto", "--star", "Vega", "--dut1", "2"}, EXIT_BAD_ARGUMENTS, "--dut1: 2 is outside"},
      {{"--json", "--model", "12", "status"}, EXIT_BAD_ARGUMENTS, "--model: 12 is outside 0 to 11",
       "\"usage\":true,\"message\":\"--model: 12 is outside 0 to 11"},
      {{"move", "2", "1.0"}, EXIT_BAD_ARGUMENTS, "AXIS: 2 is outside 0 to 1"},
      {{"emulate", "bogus"}, EXIT_BAD_ARGUMENTS, "unknown controller \"bogus\""},
      {{"serve", "--listen", "127.0.0.1:"}, EXIT_BAD_ARGUMENTS, "expects ADDRESS:PORT"},
      {{"serve", "--listen", "127.0.0.1:99999"}, EXIT_BAD_ARGUMENTS, "expects ADDRESS:PORT"},
      {{"serve", "--listen", "[::1"}, EXIT_BAD_ARGUMENTS, "expects ADDRESS:PORT"},
      {{"serve", "--listen", "256.1.1.1:5"}, EXIT_BAD_ARGUMENTS, "cannot listen on 256.1.1.1:5"},
      {{"--model", "0", "status"}, EXIT_LIBRARY_ERROR, "scopemount: 連線 Marvane 經緯儀（未給出 --port）",
       "", "zh_TW.UTF-8"},
      {At({"--port", "/dev/null", "status"}), 0, "--port /dev/null is ignored"},
      {At({"goto", "--star", "Vulcan"}), EXIT_BAD_ARGUMENTS, "unknown star 'Vulcan'"},
      // Azimuth west of north reads and prints as 355, not -5.
      {At({"--json", "goto", "--altaz", "355", "3"}), 0, "",
       "\"azimuth\":355.000000,\"altitude\":3.000000}}"},  // the arrival
      {At({"--json", "goto", "--altaz", "10", "85"}), EXIT_LIBRARY_ERROR,
       "altitude 85.0 deg; limits in force 0 to 75 deg: Target position too high (103)",
       "\"code\":103,\"message\":\"Target"},
      {At({"goto", "--radec", "0", "-80"}), EXIT_LIBRARY_ERROR,
       " deg is below the horizon; limits in force 0 to 75 deg: Target position too low"},
      {At({"goto", "--altaz", "10", "-5"}), EXIT_LIBRARY_ERROR, "目标仰角过低 (104)", "",
       "zh_CN.UTF-8"},
  };
  for (const Case& c : cases) {
    const ProcessResult r = Cli(c.arguments, c.locale);
    const std::string what = c.arguments[0] + " ... " + c.arguments.back();
    EXPECT_EQ(r.exitStatus, c.exitStatus) << what << ": " << r.err;
    EXPECT_TRUE(c.onStandardError.empty() ? r.err.empty() : Occurrences(r.err, c.onStandardError) == 1)
        << what << ": said once\n" << r.err;
    EXPECT_TRUE(Contains(r.out, c.onStandardOutput)) << what << ": " << r.out;
    // serve learns that its address cannot be had only when it listens.
    if (c.exitStatus == EXIT_BAD_ARGUMENTS && c.arguments[0] != "serve") {
      EXPECT_FALSE(Contains(r.out, "Connected:")) << what << ": refused before connecting\n" << r.out;
    }
    if (c.arguments[0] != "--json") continue;
    std::istringstream lines(r.out);
    for (std::string line; std::getline(lines, line);) {
      EXPECT_TRUE(!line.empty() && line.front() == '{' && line.back() == '}') << what << line;
      EXPECT_TRUE(line.find("{\"event\":") != 0 || Contains(line, "\",\"utc\":\"20")) << line;
    }
  }
}

TEST(CliSession, DefaultRunConnectsSlewsTracksAndDisconnects) {
  const ProcessResult r = Cli({});
  ASSERT_EQ(r.exitStatus, 0) << r.out << r.err;
  EXPECT_TRUE(Contains(r.out, "Connected: Alt/Az Mount Simulator")) << r.out;
  EXPECT_TRUE(Contains(r.out, ") is up: RA ")) << r.out;
  EXPECT_TRUE(Contains(r.out, "\nslewing ")) << "plain progress lines when not a terminal\n" << r.out;
  EXPECT_TRUE(Contains(r.out, "Arrived: tracking")) << r.out;
  EXPECT_TRUE(Contains(r.out, "t+ 5.")) << r.out;
  EXPECT_TRUE(Contains(r.out, "Disconnected.\n")) << r.out;
  EXPECT_EQ(r.out.find('\r'), std::string::npos) << "no line rewriting into a pipe";
}

// The number after "key": at or after `from`.
double JsonNumberAfter(const std::string& text, size_t from, const std::string& key) {
  const size_t at = text.find("\"" + key + "\":", from);
  return at == std::string::npos ? NAN : std::strtod(text.c_str() + at + key.size() + 3, nullptr);
}

// A GOTO to Vega by name, to its J2000 place, or to its place of date with
// --of-date, ends within an arcminute of where `stars` says Vega is then.
TEST(CliSession, GotoInEachFrameEndsWhereTheStarListPutsTheStar) {
  const std::string at = "2026-03-01T22:00:00Z";  // Vega low in the north-east: a short slew
  const ProcessResult stars = Cli(At({"--json", "stars", "--at", at}));
  const size_t vega = stars.out.find("\"ofDate\"", stars.out.find("{\"star\":\"Vega\""));
  const double ra = JsonNumberAfter(stars.out, vega, "rightAscension") / 12 * M_PI;
  const double dec = JsonNumberAfter(stars.out, vega, "declination") / 180 * M_PI;
  const std::vector<std::string> targets[] = {
      {"--star", "Vega", "--track", "2"},
      {"--radec", "18:36:56.336", "38:47:01.28"},
      {"--radec", std::to_string(ra * 12 / M_PI), std::to_string(dec * 180 / M_PI), "--of-date"}};
  for (const std::vector<std::string>& target : targets) {
    std::vector<std::string> args = {"--json", "goto", "--at", at};
    args.insert(args.end(), target.begin(), target.end());
    const ProcessResult r = Cli(At(args));
    ASSERT_EQ(r.exitStatus, 0) << r.out << r.err;
    const size_t pointing = r.out.find("\"ofDate\"", r.out.find("\"event\":\"arrived\""));
    const double off = ScopeAngularSeparation(
        ra, dec, JsonNumberAfter(r.out, pointing, "rightAscension") / 12 * M_PI,
        JsonNumberAfter(r.out, pointing, "declination") / 180 * M_PI);
    EXPECT_LT(off * 180 / M_PI * 60, 1.0) << target.back() << " (arcminutes)\n" << r.out;
    // A tracking event 2 s on comes only with --track 2.
    EXPECT_EQ(Contains(r.out, "{\"event\":\"tracking\",\"utc\":\"20") && Contains(r.out, ",\"t\":2."),
              target[0] == "--star")
        << r.out;
  }
}

TEST(CliSession, ShellRunsCommandsInOneConnection) {
  const std::string script =
      "# a scripted session\n"
      "status\n"
      "goto --axes 4 3 --track 1\n"
      "stop\n"
      "save " + ::testing::TempDir() + "scopemount_shell.rec\n"
      "bogus\n"
      "help\n"
      "status\n"
      "quit\n"
      "status\n";
  const ProcessResult r = Cli(At({"shell"}), "C", script);
  EXPECT_EQ(r.exitStatus, EXIT_LIBRARY_ERROR) << "one command failed: " << r.out << r.err;
  EXPECT_EQ(Occurrences(r.out, "Connected:"), 1u) << "one connection for the whole script\n" << r.out;
  EXPECT_TRUE(Contains(r.out, "Stopped both axes and tracking.\nidle ")) << r.out;
  EXPECT_EQ(Occurrences(r.out, "Alt    3.000\n"), 2u) << "after stop and bogus, none after quit\n"
                                                << r.out;
  EXPECT_TRUE(Contains(r.out, "Alignment saved to")) << r.out;
  EXPECT_TRUE(Contains(r.err, "bogus")) << r.err;
  EXPECT_TRUE(Contains(r.out, "  stop  ") && Contains(r.out, "help, quit or exit")) << r.out;
  EXPECT_TRUE(Contains(r.out, "Disconnected.\n")) << r.out;

  // The saved record restores in a later connection.
  const ProcessResult loaded =
      Cli(At({"--load", ::testing::TempDir() + "scopemount_shell.rec", "status"}));
  EXPECT_EQ(loaded.exitStatus, 0) << loaded.err;
  EXPECT_TRUE(Contains(loaded.out, "Alignment restored from")) << loaded.out;
}

// At a terminal the shell edits lines and keeps a history; the live line
// fits the terminal (wider, it would wrap and leave a trail) and follows its
// width; Ctrl-C cancels the running command, and at the prompt ends the shell.
TEST(CliSession, ShellAtATerminal) {
  if (!SCOPEMOUNT_CLI_LINE_EDITING) GTEST_SKIP() << "built without line editing";
  ChildProcess terminal(SCOPEMOUNT_CLI_PATH, At({"shell"}), {"LC_ALL=C", "HOME=/nowhere"}, 80);
  const auto seen = [](const std::string& text, size_t times) {
    return [text, times](const std::string& screen) { return Occurrences(screen, text) >= times; };
  };
  const auto liveLineWithin = [](size_t columns) {
    return [columns](const std::string& screen) {
      const std::vector<std::string> lines = LiveLines(screen);
      return !lines.empty() && lines.back().size() < columns;
    };
  };
  const std::string prompt = "scopemount> ";
  ASSERT_TRUE(terminal.WaitFor(seen(prompt, 1), 30s)) << terminal.out();
  terminal.Type("statux\x7fs\n");  // a typo mended with backspace
  ASSERT_TRUE(terminal.WaitFor(seen(prompt, 2), 30s)) << terminal.out();
  terminal.Type("\x10\n");  // Ctrl-P: the line before, again
  ASSERT_TRUE(terminal.WaitFor(seen(prompt, 3), 30s)) << terminal.out();
  EXPECT_EQ(Occurrences(terminal.out(), "idle     axes     0.000"), 2u) << terminal.out();

  terminal.Type("goto --axes 120 60\n");
  ASSERT_TRUE(terminal.WaitFor(liveLineWithin(80), 30s)) << terminal.out();
  terminal.Resize(50);
  ASSERT_TRUE(terminal.WaitFor(liveLineWithin(50), 30s)) << terminal.out();
  terminal.Type("\x03");
  ASSERT_TRUE(terminal.WaitFor(seen(prompt, 4), 30s)) << terminal.out();
  const std::vector<std::string> lines = LiveLines(terminal.out());
  EXPECT_TRUE(Contains(lines.front(), "to go ") && Contains(lines.front(), "  Az ")) << lines[0];
  bool narrowed = false;
  for (const std::string& line : lines) {
    narrowed = narrowed || line.size() < 50;
    EXPECT_LT(line.size(), narrowed ? 50u : 80u) << line;
  }
  EXPECT_TRUE(Contains(terminal.out(), "\nscopemount: GOTO axes 120.000 60.000: User interrupt "
                                          "(105)\r\nCancelled;"))
      << "the live line ends before the error\n" << terminal.out();
  terminal.Type("\x03");
  EXPECT_EQ(terminal.WaitForExit(30s), 130);
  EXPECT_TRUE(Contains(terminal.out(), "Disconnected.")) << terminal.out();
}

TEST(CliSession, CtrlCDuringASlewStopsTheMountAndDisconnects) {
  const ProcessResult r = Cli(At({"goto", "--altaz", "170", "60"}), "C", "", "\nslewing ");
  EXPECT_EQ(r.exitStatus, 130) << r.out << r.err;
  EXPECT_EQ(r.err, "scopemount: GOTO Az 170.000 Alt 60.000: User interrupt (105)\n");
  EXPECT_TRUE(Contains(r.out, "Disconnected.\n")) << r.out;
  EXPECT_FALSE(Contains(r.out, "Arrived")) << r.out;
}

// `emulate` beside a session, as the README shows them: a hardware model's
// controller served on a pseudo-terminal whose path it prints first, a
// short GOTO through it, and serving ended by end of input or by Ctrl-C.
TEST(CliSession, EmulateServesAGotoOfEachHardwareProtocol) {
  const struct {
    const char* protocol;
    const char* model;
    const char* name;
    std::vector<std::string> target;
    const char* arrived;
  } cases[] = {
      {"auxbus", "0", "Marvane Alt/Az Mount", {"--axes", "0.5", "0.5"}, "Arrived: idle"},
      {"motorcontroller", "2", "Hollin Alt/Az Mount", {"--axes", "3", "2"}, "Arrived: idle"},
      // Low in the sky at this site, so the slew is short.
      {"compact", "8", "Marvane Corvel K-1 Alt/Az Mount",
       {"--star", "Polaris", "--lat", "5", "--lon", "0"}, "Arrived: tracking"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.protocol) + " model " + c.model);
    ChildProcess emulator(SCOPEMOUNT_CLI_PATH, {"emulate", c.protocol});
    ASSERT_TRUE(emulator.WaitForText("\n", 20s)) << emulator.err();
    const std::string path = emulator.out().substr(0, emulator.out().find('\n'));
    ASSERT_EQ(path.rfind("/dev/pts/", 0), 0u) << path;
    std::vector<std::string> arguments{"goto", "--model", c.model, "--port", path};
    arguments.insert(arguments.end(), c.target.begin(), c.target.end());
    const ProcessResult r = Cli(arguments);
    EXPECT_EQ(r.exitStatus, 0) << r.out << r.err;
    EXPECT_TRUE(Contains(r.out, std::string("Connected: ") + c.name)) << r.out;
    EXPECT_TRUE(Contains(r.out, c.arrived)) << r.out;
    if (&c == &cases[1]) {
      emulator.Interrupt();
    } else {
      emulator.CloseInput();
    }
    EXPECT_EQ(emulator.WaitForExit(20s), 0) << "a normal end";
  }
}

// Chinese takes two columns a character: the live line and the tables count
// columns, and never cut a character in half.
TEST(Cli, TextIsMeasuredInTerminalColumns) {
  using namespace scopemount::cli;
  EXPECT_EQ(DisplayColumns("RA 星等"), 7u);
  EXPECT_EQ(PadToColumns("星", 4), "星  ");
  EXPECT_EQ(PadToColumns("星", 4, true), "  星");
  EXPECT_EQ(CutToColumns("赤经 J2000", 3), "赤");
  EXPECT_EQ(CutToColumns("赤经 J2000", 5), "赤经 ");
  // 14 columns fit 16 less the margin (in bytes they would not).
  EXPECT_EQ(FitLiveLine({{"转动中", 9}, {"方位 1", 7}}, 16), "转动中  方位 1");
  EXPECT_EQ(FitLiveLine({{"转动中", 9}, {"方位 123", 7}}, 16), "转动中");
  EXPECT_EQ(FitLiveLine({{"转动中转动中", 9}}, 12), "转动中转动");
}

}  // namespace
