// `scopemount goto --model 2 --port PATH` against `scopemount emulate
// motorcontroller` running beside it, as the README shows.
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <string>

#include "support/process.h"

extern char** environ;

namespace scopemount::testing {
namespace {

TEST(MotorControllerCli, GotoAgainstTheServedController) {
  int input[2], output[2];
  ASSERT_EQ(pipe(input), 0);
  ASSERT_EQ(pipe(output), 0);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
  posix_spawn_file_actions_addclose(&actions, input[1]);
  posix_spawn_file_actions_addclose(&actions, output[0]);
  std::string program = SCOPEMOUNT_CLI_PATH;
  std::string command = "emulate";
  std::string protocol = "motorcontroller";
  char* argv[] = {program.data(), command.data(), protocol.data(), nullptr};
  pid_t emulator = -1;
  ASSERT_EQ(posix_spawn(&emulator, program.c_str(), &actions, nullptr, argv, environ), 0);
  posix_spawn_file_actions_destroy(&actions);
  close(input[0]);
  close(output[1]);
  std::string path;
  char c;
  while (read(output[0], &c, 1) == 1 && c != '\n') path.push_back(c);

  const ProcessResult result = RunProcess(
      SCOPEMOUNT_CLI_PATH, {"goto", "--model", "2", "--port", path, "--axes", "3", "2"});
  EXPECT_EQ(result.exitStatus, 0) << result.out << result.err;
  EXPECT_NE(result.out.find("Arrived"), std::string::npos) << result.out;

  close(input[1]);  // end of input stops the emulator
  int status = 0;
  waitpid(emulator, &status, 0);
  close(output[0]);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
}

}  // namespace
}  // namespace scopemount::testing
