#include "support/background_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace scopemount::testing {

namespace {

using Clock = std::chrono::steady_clock;

// How long one look at the program's output may wait.
constexpr int LOOK_MS = 10;

}  // namespace

BackgroundProcess::BackgroundProcess(const std::string& program,
                                     const std::vector<std::string>& arguments) {
  int out[2], err[2];
  if (pipe2(out, O_CLOEXEC) != 0) return;
  if (pipe2(err, O_CLOEXEC) != 0) {
    close(out[0]);
    close(out[1]);
    return;
  }
  std::vector<char*> argv;
  argv.push_back(const_cast<char*>(program.c_str()));
  for (const std::string& a : arguments) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, out[1], 1);
  posix_spawn_file_actions_adddup2(&actions, err[1], 2);
  if (posix_spawn(&pid_, program.c_str(), &actions, nullptr, argv.data(), environ) != 0) {
    pid_ = -1;
  }
  posix_spawn_file_actions_destroy(&actions);
  close(out[1]);
  close(err[1]);
  outFd_ = out[0];
  errFd_ = err[0];
}

BackgroundProcess::~BackgroundProcess() {
  if (pid_ > 0 && !ended_) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  if (outFd_ >= 0) close(outFd_);
  if (errFd_ >= 0) close(errFd_);
}

void BackgroundProcess::Collect(int timeoutMs) {
  pollfd fds[2] = {{outFd_, POLLIN, 0}, {errFd_, POLLIN, 0}};
  if (poll(fds, 2, timeoutMs) <= 0) return;
  char buffer[4096];
  for (int i = 0; i < 2; ++i) {
    if (fds[i].revents == 0) continue;
    int& fd = i == 0 ? outFd_ : errFd_;
    const ssize_t n = read(fd, buffer, sizeof buffer);
    if (n <= 0) {
      close(fd);
      fd = -1;
    } else {
      (i == 0 ? out_ : err_).append(buffer, static_cast<size_t>(n));
    }
  }
}

bool BackgroundProcess::WaitFor(const std::function<bool(const std::string&)>& done,
                                std::chrono::milliseconds deadline,
                                const std::function<void()>& meanwhile) {
  const Clock::time_point end = Clock::now() + deadline;
  for (;;) {
    if (done(out_)) return true;
    if (Clock::now() > end || (outFd_ < 0 && errFd_ < 0)) return false;
    if (meanwhile) meanwhile();
    Collect(LOOK_MS);
  }
}

bool BackgroundProcess::WaitForText(const std::string& text, std::chrono::milliseconds deadline,
                                    const std::function<void()>& meanwhile) {
  return WaitFor([&text](const std::string& out) { return out.find(text) != std::string::npos; },
                 deadline, meanwhile);
}

void BackgroundProcess::Interrupt() {
  if (pid_ > 0 && !ended_) kill(pid_, SIGINT);
}

int BackgroundProcess::WaitForExit(std::chrono::milliseconds deadline) {
  const Clock::time_point end = Clock::now() + deadline;
  while (pid_ > 0 && !ended_) {
    int status = 0;
    const pid_t r = waitpid(pid_, &status, WNOHANG);
    if (r == pid_) {
      ended_ = true;
      exitStatus_ = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
      break;
    }
    if (r < 0 || Clock::now() > end) return -1;
    Collect(LOOK_MS);
  }
  // Whatever it printed last.
  while (outFd_ >= 0 || errFd_ >= 0) Collect(LOOK_MS);
  return exitStatus_;
}

}  // namespace scopemount::testing
