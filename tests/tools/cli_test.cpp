#include <gtest/gtest.h>

#include <chrono>
#include <sstream>
#include <string>

#include "support/process.h"
#include "support/terminal_process.h"

namespace {

using scopemount::testing::ProcessResult;
using scopemount::testing::RunProcess;
using scopemount::testing::TerminalProcess;
using namespace std::chrono_literals;

ProcessResult Cli(const std::vector<std::string>& arguments, const std::string& locale = "C") {
  return RunProcess(SCOPEMOUNT_CLI_PATH, arguments, "", {"LC_ALL=" + locale});
}

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

size_t Count(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
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

// What a command prints, in the user's language: under --json every line is
// one JSON object, and every event says when it happened.
TEST(Cli, OutputsOfCommandsInTextAndJson) {
  struct Case {
    std::vector<std::string> arguments;
    std::string expected;
    std::string locale = "C";
  };
  const Case cases[] = {
      {{"models"}, " 7  simulator, no --port                     Alt/Az Mount Simulator\n"},
      {{"models"}, "11  --port DEVICE (emulate compact)          Dravic Quillo-2"},
      {{"models"}, " 仿真赤道仪\n", "zh_CN.UTF-8"},
      {{"codes"}, "  3  尚未連接到望遠鏡\n", "zh_TW.UTF-8"},
      {{"codes"}, "105  User interrupt\n"},
      {{"--version"}, "scopemount 0.1.0\nlibrary libscopemount 0.1.0\n"},
      {{"--json", "--version"}, "{\"program\":\"0.1.0\",\"library\":\"0.1.0\"}\n"},
      {{"--json", "models"},
       "{\"model\":0,\"name\":\"Marvane Alt/Az Mount\",\"works\":true,\"simulator\":false,"
       "\"needsPort\":true,\"emulate\":\"auxbus\"}\n"},
      {{"models", "--json"}, "\"simulator\":true,\"needsPort\":false,\"emulate\":null}\n"},
      {{"--json", "codes"}, "{\"code\":105,\"message\":\"User interrupt\"}\n"},
      {{"--json", "emulate", "--list"}, "{\"protocol\":\"compact\",\"description\":\"compact"},
      {{"--json", "--model", "12", "status"}, "\"usage\":true,\"message\":\"--model: Value 12"},
      {{"separation", "0", "0", "90", "0"}, "90.000000000\n"},
      {{"separation", "--radians", "0", "0", "1", "0"}, "1.000000000\n"},
      {{"separation", "--", "10", "-20", "10", "-20"}, "0.000000000\n"},
      {{"stop"}, "Stopped both axes and tracking.\nidle "},
      {{"stop", "--axis", "1"}, "Stopped axis 1.\n"},
      {{"--json", "stop", "--axis", "0"}, "{\"event\":\"stopped\",\"utc\":\"20"},
      {At({"--json", "goto", "--altaz", "10", "85"}), "\"code\":103,\"message\":\"Target"},
      {At({"--json", "goto", "--axes", "3", "2"}),
       "\"target\":{\"frame\":\"axes\",\"axis0\":3.000000,\"axis1\":2.000000}}\n"},
  };
  for (const auto& [arguments, expected, locale] : cases) {
    const ProcessResult r = Cli(arguments, locale);
    const std::string what = arguments[0] + " ... " + arguments.back() + ": ";
    EXPECT_TRUE(Contains(r.out, expected)) << what << r.out << r.err;
    if (arguments[0] != "--json") continue;
    std::istringstream lines(r.out);
    for (std::string line; std::getline(lines, line);) {
      EXPECT_TRUE(!line.empty() && line.front() == '{' && line.back() == '}') << what << line;
      EXPECT_TRUE(line.find("{\"event\":") != 0 || Contains(line, "\",\"utc\":\"20")) << line;
    }
  }
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

// Bad arguments end with 2, a library failure with 1 and the library's own
// message in the user's language; each said once on standard error.
TEST(Cli, FailuresSayWhatIsWrongWithTheirExitStatus) {
  struct Case {
    std::vector<std::string> arguments;
    int exitStatus;
    std::string onStandardError;
    std::string locale = "C";
  };
  const Case cases[] = {
      {{"separation", "0", "0", "north", "0"}, EXIT_BAD_ARGUMENTS, "LON2"},
      {{"separation", "0", "0"}, EXIT_BAD_ARGUMENTS, "LON2 is required"},
      {{"sidereal-time", "--at", "1987-13-01 00:00"}, EXIT_BAD_ARGUMENTS, "--at"},
      {{"sidereal-time", "--utc-offset", "99"}, EXIT_BAD_ARGUMENTS, "--utc-offset"},
      {{"no-such-command"}, EXIT_BAD_ARGUMENTS, "no-such-command"},
      {{"goto", "--radec", "12", "45", "--star", "Vega"}, EXIT_BAD_ARGUMENTS, "exactly one of"},
      {{"goto", "--radec", "12"}, EXIT_BAD_ARGUMENTS, "--radec"},
      {{"--model", "12", "status"}, EXIT_BAD_ARGUMENTS, "--model"},
      {{"move", "2", "1.0"}, EXIT_BAD_ARGUMENTS, "AXIS"},  // there is no axis 2
      {{"stop", "--axis", "2"}, EXIT_BAD_ARGUMENTS, "--axis"},
      {{"--bogus"}, EXIT_BAD_ARGUMENTS, "--bogus"},
      {{"emulate", "bogus"}, EXIT_BAD_ARGUMENTS, "unknown controller \"bogus\""},
      {{"serve", "--listen", "127.0.0.1:"}, EXIT_BAD_ARGUMENTS, "expects ADDRESS:PORT"},
      {{"serve", "--listen", "127.0.0.1:99999"}, EXIT_BAD_ARGUMENTS, "expects ADDRESS:PORT"},
      {{"serve", "--listen", "[::1"}, EXIT_BAD_ARGUMENTS, "expects ADDRESS:PORT"},
      {{"serve", "--listen", "256.1.1.1:5"}, EXIT_BAD_ARGUMENTS, "cannot listen on 256.1.1.1:5"},
      {{"--help"}, 0, ""},
      {{"--model", "0", "status"}, EXIT_LIBRARY_ERROR, "Marvane Alt/Az Mount (no --port given)"},
      {At({"--port", "/dev/null", "status"}), 0, "--port /dev/null is ignored"},
      {At({"goto", "--star", "Vulcan"}), EXIT_BAD_ARGUMENTS, "unknown star 'Vulcan'"},
      {At({"goto", "--altaz", "10", "85"}), EXIT_LIBRARY_ERROR, "Target position too high (103)"},
      {At({"goto", "--altaz", "10", "-5"}), EXIT_LIBRARY_ERROR, "目标仰角过低 (104)", "zh_CN.UTF-8"},
  };
  for (const Case& c : cases) {
    const ProcessResult r = Cli(c.arguments, c.locale);
    const std::string what = c.arguments[0] + " ... " + c.arguments.back();
    EXPECT_EQ(r.exitStatus, c.exitStatus) << what << ": " << r.err;
    EXPECT_TRUE(c.onStandardError.empty() ? r.err.empty() : Count(r.err, c.onStandardError) == 1)
        << what << ": said once\n" << r.err;
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

TEST(CliSession, GotoAStarArrivesAndHoldsIt) {
  // Polaris is always up at this site and close to where the simulator starts.
  const ProcessResult r = Cli(At({"goto", "--star", "Polaris", "--track", "2"}));
  ASSERT_EQ(r.exitStatus, 0) << r.out << r.err;
  EXPECT_TRUE(Contains(r.out, "Slewing to Polaris")) << r.out;
  EXPECT_TRUE(Contains(r.out, "Arrived: tracking")) << r.out;
  EXPECT_TRUE(Contains(r.out, "t+ 2.")) << r.out;
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
  const ProcessResult r =
      RunProcess(SCOPEMOUNT_CLI_PATH, At({"shell"}), script, {"LC_ALL=C"});
  EXPECT_EQ(r.exitStatus, EXIT_LIBRARY_ERROR) << "one command failed: " << r.out << r.err;
  EXPECT_EQ(Count(r.out, "Connected:"), 1u) << "one connection for the whole script\n" << r.out;
  EXPECT_TRUE(Contains(r.out, "Stopped both axes and tracking.\nidle ")) << r.out;
  EXPECT_EQ(Count(r.out, "Alt    3.000\n"), 2u) << "after stop and bogus, none after quit\n"
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
  TerminalProcess terminal(SCOPEMOUNT_CLI_PATH, At({"shell"}), 80, {"LC_ALL=C", "HOME=/nowhere"});
  const auto seen = [](const std::string& text, size_t times) {
    return [text, times](const std::string& screen) { return Count(screen, text) >= times; };
  };
  const auto liveLineWithin = [](size_t columns) {
    return [columns](const std::string& screen) {
      const std::vector<std::string> lines = LiveLines(screen);
      return !lines.empty() && lines.back().size() < columns;
    };
  };
  const std::string prompt = "scopemount> ";
  ASSERT_TRUE(terminal.WaitFor(seen(prompt, 1), 30s)) << terminal.screen();
  terminal.Type("statux\x7fs\n");  // a typo mended with backspace
  ASSERT_TRUE(terminal.WaitFor(seen(prompt, 2), 30s)) << terminal.screen();
  terminal.Type("\x10\n");  // Ctrl-P: the line before, again
  ASSERT_TRUE(terminal.WaitFor(seen(prompt, 3), 30s)) << terminal.screen();
  EXPECT_EQ(Count(terminal.screen(), "idle     axes     0.000"), 2u) << terminal.screen();

  terminal.Type("goto --axes 120 60\n");
  ASSERT_TRUE(terminal.WaitFor(liveLineWithin(80), 30s)) << terminal.screen();
  terminal.Resize(50);
  ASSERT_TRUE(terminal.WaitFor(liveLineWithin(50), 30s)) << terminal.screen();
  terminal.Type("\x03");
  ASSERT_TRUE(terminal.WaitFor(seen(prompt, 4), 30s)) << terminal.screen();
  const std::vector<std::string> lines = LiveLines(terminal.screen());
  EXPECT_TRUE(Contains(lines.front(), "to go ") && Contains(lines.front(), "  Az ")) << lines[0];
  bool narrowed = false;
  for (const std::string& line : lines) {
    narrowed = narrowed || line.size() < 50;
    EXPECT_LT(line.size(), narrowed ? 50u : 80u) << line;
  }
  EXPECT_TRUE(Contains(terminal.screen(), "\nscopemount: GOTO axes 120.000 60.000: User interrupt "
                                          "(105)\r\nCancelled;"))
      << "the live line ends before the error\n" << terminal.screen();
  terminal.Type("\x03");
  EXPECT_EQ(terminal.Wait(30s), 130);
  EXPECT_TRUE(Contains(terminal.screen(), "Disconnected.")) << terminal.screen();
}

TEST(CliSession, CtrlCDuringASlewStopsTheMountAndDisconnects) {
  const ProcessResult r = RunProcess(SCOPEMOUNT_CLI_PATH, At({"goto", "--altaz", "170", "60"}),
                                     "", {"LC_ALL=C"}, "\nslewing ");
  EXPECT_EQ(r.exitStatus, 130) << r.out << r.err;
  EXPECT_EQ(r.err, "scopemount: GOTO Az 170.000 Alt 60.000: User interrupt (105)\n");
  EXPECT_TRUE(Contains(r.out, "Disconnected.\n")) << r.out;
  EXPECT_FALSE(Contains(r.out, "Arrived")) << r.out;
}

}  // namespace
