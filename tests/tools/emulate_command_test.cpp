// `scopemount emulate`: the served controller answers the library's port on
// the printed path, and the program ends on end of input or on Ctrl-C.
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>

#include "serial/probe_port.h"
#include "support/process.h"
#include "support/selected_port.h"

extern char** environ;

namespace scopemount::testing {
namespace {

constexpr int32_t EMULATOR_PORT = 43;

// The program running with pipes on its standard input and output.
class ServedEmulator {
 public:
  explicit ServedEmulator(const char* protocol) {
    int input[2], output[2];
    if (pipe(input) != 0 || pipe(output) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, input[1]);
    posix_spawn_file_actions_addclose(&actions, output[0]);
    std::string program = SCOPEMOUNT_CLI_PATH;
    std::string command = "emulate";
    std::string name = protocol;
    char* argv[] = {program.data(), command.data(), name.data(), nullptr};
    if (posix_spawn(&pid_, program.c_str(), &actions, nullptr, argv, environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    close(input[0]);
    close(output[1]);
    stdin_ = input[1];
    stdout_ = output[0];
  }
  ~ServedEmulator() {
    CloseInput();
    if (stdout_ >= 0) close(stdout_);
    if (pid_ > 0) Wait();
  }

  // The first line the program printed.
  std::string FirstLine() {
    std::string line;
    char c;
    while (read(stdout_, &c, 1) == 1 && c != '\n') line.push_back(c);
    return line;
  }
  void CloseInput() {
    if (stdin_ >= 0) close(stdin_);
    stdin_ = -1;
  }
  void Interrupt() { kill(pid_, SIGINT); }
  // The exit status, or -1 when it did not exit normally.
  int Wait() {
    int status = 0;
    const pid_t ended = waitpid(pid_, &status, 0);
    pid_ = -1;
    return ended > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid_ = -1;
  int stdin_ = -1;
  int stdout_ = -1;
};

TEST(EmulateCommand, ServesTheControllerOnThePrintedPathUntilInputEnds) {
  ServedEmulator emulator("demo");
  const std::string path = emulator.FirstLine();
  ASSERT_EQ(path.rfind("/dev/pts/", 0), 0u) << path;
  {
    const SelectedPort selected(EMULATOR_PORT, path.c_str());
    ASSERT_TRUE(selected.bound());
    ProbePort port;
    ASSERT_TRUE(port.IsOpen());
    const char command[] = "POS 1\n";
    uint8_t reply[8] = {};
    port.replyLength = 4;
    EXPECT_EQ(port.Exchange(reinterpret_cast<const uint8_t*>(command), sizeof command - 1, reply),
              EXCHANGE_OK);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(reply), 4), "1 0\n");
  }
  emulator.CloseInput();
  EXPECT_EQ(emulator.Wait(), 0);
}

TEST(EmulateCommand, EndsOnInterrupt) {
  ServedEmulator emulator("demo");
  ASSERT_FALSE(emulator.FirstLine().empty());
  emulator.Interrupt();
  EXPECT_EQ(emulator.Wait(), 0);
}

// Two programs side by side, as the README shows them: a compact mount's
// board served on a pseudo-terminal, and a GOTO to a star through it (low
// in the sky at this site, so the slew is short).
TEST(EmulateCommand, ACompactMountGoesToAStarOnTheServedBoard) {
  ServedEmulator emulator("compact");
  const std::string path = emulator.FirstLine();
  ASSERT_EQ(path.rfind("/dev/pts/", 0), 0u) << path;
  const ProcessResult r =
      RunProcess(SCOPEMOUNT_CLI_PATH, {"goto", "--model", "8", "--port", path, "--star", "Polaris",
                                       "--lat", "5", "--lon", "0"});
  EXPECT_EQ(r.exitStatus, 0) << r.out << r.err;
  EXPECT_NE(r.out.find("Arrived: tracking"), std::string::npos) << r.out;
  emulator.CloseInput();
  EXPECT_EQ(emulator.Wait(), 0);
}

}  // namespace
}  // namespace scopemount::testing
