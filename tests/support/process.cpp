#include "support/process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <sstream>
#include <thread>

extern char** environ;

namespace scopemount::testing {

namespace {

using Clock = std::chrono::steady_clock;

// How long one look at the program's output may wait.
constexpr int LOOK_MS = 10;
// How long a program whose input closed may take to end before it is killed.
constexpr auto GRACE = std::chrono::seconds(2);
// How long a whole run may take.
constexpr auto RUN_LIMIT = std::chrono::minutes(2);
constexpr unsigned short TERMINAL_ROWS = 24;

void CloseFd(int& fd) {
  if (fd >= 0) close(fd);
  fd = -1;
}

std::vector<char*> Pointers(const std::vector<std::string>& strings) {
  std::vector<char*> pointers;
  for (const std::string& s : strings) pointers.push_back(const_cast<char*>(s.c_str()));
  return pointers;
}

// Under user-mode emulation (a cross build's tests) a child of the target's
// architecture cannot be executed directly: SCOPEMOUNT_TEST_LAUNCHER names
// the emulator and its options, and the program goes to it by its real path
// (the emulator would read /proc/self/exe as itself).
std::vector<std::string> LaunchedCommand(const std::string& program) {
  const char* launcher = std::getenv("SCOPEMOUNT_TEST_LAUNCHER");
  if (launcher == nullptr || *launcher == '\0') return {program};
  std::vector<std::string> command;
  std::istringstream words(launcher);
  for (std::string word; words >> word;) command.push_back(word);
  char resolved[PATH_MAX];
  command.push_back(realpath(program.c_str(), resolved) != nullptr ? resolved : program);
  return command;
}

}  // namespace

// Pipes, which become the program's standard input, output and error; the
// program's ends go to `programEnds`, closed once it has started.
bool ChildProcess::OpenPipes(posix_spawn_file_actions_t& actions, std::vector<int>& programEnds) {
  int in[2], out[2], err[2];
  if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) {
    return false;
  }
  posix_spawn_file_actions_adddup2(&actions, in[0], STDIN_FILENO);
  posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
  programEnds = {in[0], out[1], err[1]};
  in_ = in[1];
  out_ = out[0];
  err_ = err[0];
  return true;
}

// A pseudo-terminal, which the program opens as its controlling terminal in
// a session of its own, so that Ctrl-C typed there interrupts it.
bool ChildProcess::OpenTerminal(unsigned short columns, posix_spawn_file_actions_t& actions,
                                posix_spawnattr_t& attributes) {
  out_ = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
  char path[128];
  const winsize size{TERMINAL_ROWS, columns, 0, 0};
  if (out_ < 0 || grantpt(out_) != 0 || unlockpt(out_) != 0 ||
      ptsname_r(out_, path, sizeof path) != 0 || ioctl(out_, TIOCSWINSZ, &size) != 0) {
    return false;
  }
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, path, O_RDWR, 0);
  posix_spawn_file_actions_adddup2(&actions, STDIN_FILENO, STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, STDIN_FILENO, STDERR_FILENO);
  in_ = fcntl(out_, F_DUPFD_CLOEXEC, 0);
  return in_ >= 0;
}

ChildProcess::ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
                           const std::vector<std::string>& environment,
                           unsigned short terminalColumns) {
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
  posix_spawn_file_actions_init(&actions);
  posix_spawnattr_init(&attributes);
  std::vector<int> programEnds;
  const bool ready = terminalColumns > 0 ? OpenTerminal(terminalColumns, actions, attributes)
                                         : OpenPipes(actions, programEnds);
  const std::vector<std::string> command = LaunchedCommand(program);
  std::vector<char*> argv = Pointers(arguments);
  const std::vector<char*> launch = Pointers(command);
  argv.insert(argv.begin(), launch.begin(), launch.end());
  argv.push_back(nullptr);
  std::vector<char*> envp = Pointers(environment);
  for (char** e = environ; *e != nullptr; ++e) envp.push_back(*e);
  envp.push_back(nullptr);

  const int spawned =
      ready ? posix_spawnp(&pid_, argv[0], &actions, &attributes, argv.data(), envp.data()) : errno;
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  for (int fd : programEnds) close(fd);
  if (spawned != 0) {
    pid_ = -1;
    collected_[1] = std::strerror(spawned);
    CloseInput();
    CloseOutputs();
  }
}

ChildProcess::~ChildProcess() {
  CloseInput();
  CloseOutputs();
  WaitForExit(GRACE);
  if (pid_ > 0) kill(pid_, SIGKILL);
  Reaped(0);
}

bool ChildProcess::Collect(int timeoutMs) {
  if (out_ < 0 && err_ < 0) return false;
  pollfd fds[2] = {{out_, POLLIN, 0}, {err_, POLLIN, 0}};
  if (poll(fds, 2, timeoutMs) <= 0) return true;
  char buffer[4096];
  for (int i = 0; i < 2; ++i) {
    if (fds[i].revents == 0) continue;
    int& fd = i == 0 ? out_ : err_;
    const ssize_t n = read(fd, buffer, sizeof buffer);
    if (n <= 0) {
      CloseFd(fd);  // the end, or EIO from a terminal whose program has ended
    } else {
      collected_[i].append(buffer, static_cast<size_t>(n));
    }
  }
  return true;
}

bool ChildProcess::Reaped(int options) {
  if (pid_ <= 0) return true;
  int status = 0;
  const pid_t ended = waitpid(pid_, &status, options);
  if (ended == 0) return false;
  exitStatus_ = ended > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  pid_ = -1;
  return true;
}

bool ChildProcess::WaitFor(const std::function<bool(const std::string&)>& done,
                           std::chrono::milliseconds deadline,
                           const std::function<void()>& meanwhile) {
  const Clock::time_point end = Clock::now() + deadline;
  for (;;) {
    if (done(collected_[0])) return true;
    if (Clock::now() > end) return false;
    if (meanwhile) meanwhile();
    if (!Collect(LOOK_MS)) return done(collected_[0]);
  }
}

bool ChildProcess::WaitForText(const std::string& text, std::chrono::milliseconds deadline,
                               const std::function<void()>& meanwhile) {
  return WaitFor([&text](const std::string& out) { return out.find(text) != std::string::npos; },
                 deadline, meanwhile);
}

int ChildProcess::WaitForExit(std::chrono::milliseconds deadline) {
  const Clock::time_point end = Clock::now() + deadline;
  while (!Reaped(WNOHANG)) {
    if (Clock::now() > end) return -1;
    if (!Collect(LOOK_MS)) std::this_thread::sleep_for(std::chrono::milliseconds(LOOK_MS));
  }
  while (Collect(LOOK_MS)) {
  }
  return exitStatus_;
}

void ChildProcess::Type(const std::string& keys) {
  const bool typed =
      in_ >= 0 && write(in_, keys.data(), keys.size()) == static_cast<ssize_t>(keys.size());
  EXPECT_TRUE(typed) << "could not type " << keys.size() << " keys";
}

void ChildProcess::CloseInput() { CloseFd(in_); }

void ChildProcess::CloseOutputs() {
  CloseFd(out_);
  CloseFd(err_);
}

void ChildProcess::Interrupt() {
  if (pid_ > 0) kill(pid_, SIGINT);
}

void ChildProcess::Resize(unsigned short columns) {
  const winsize size{TERMINAL_ROWS, columns, 0, 0};
  EXPECT_EQ(ioctl(out_, TIOCSWINSZ, &size), 0) << "only a terminal has a width";
}

ProcessResult ChildProcess::RunToEnd(const std::string& input,
                                     const std::string& interruptWhenSeen) {
  if (pid_ <= 0) return {-1, "", err()};
  if (!input.empty()) Type(input);
  CloseInput();
  if (!interruptWhenSeen.empty() && WaitForText(interruptWhenSeen, RUN_LIMIT)) Interrupt();
  return {WaitForExit(RUN_LIMIT), out(), err()};
}

}  // namespace scopemount::testing
