#include "support/terminal_process.h"

#include <poll.h>
#include <pty.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>


namespace scopemount::testing {

namespace {

constexpr unsigned short ROWS = 24;
constexpr int POLL_MS = 100;

}  // namespace

TerminalProcess::TerminalProcess(const std::string& program,
                                 const std::vector<std::string>& arguments,
                                 unsigned short columns,
                                 const std::vector<std::string>& environment) {
  // Everything the child needs is built before the fork.
  std::vector<std::string> env = environment;
  for (char** e = environ; *e != nullptr; ++e) env.emplace_back(*e);
  std::vector<char*> argv = {const_cast<char*>(program.c_str())}, envp;
  for (const std::string& a : arguments) argv.push_back(const_cast<char*>(a.c_str()));
  for (std::string& e : env) envp.push_back(e.data());
  argv.push_back(nullptr);
  envp.push_back(nullptr);
  winsize size{ROWS, columns, 0, 0};
  pid_ = forkpty(&terminal_, nullptr, nullptr, &size);
  if (pid_ == 0) {
    execve(argv[0], argv.data(), envp.data());
    _exit(127);
  }
}

TerminalProcess::~TerminalProcess() {
  if (pid_ > 0 && waitpid(pid_, nullptr, WNOHANG) == 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  if (terminal_ >= 0) close(terminal_);
}

void TerminalProcess::Resize(unsigned short columns) {
  winsize size{ROWS, columns, 0, 0};
  ioctl(terminal_, TIOCSWINSZ, &size);
}

bool TerminalProcess::WaitFor(const std::function<bool(const std::string&)>& done,
                              std::chrono::milliseconds deadline) {
  const auto end = std::chrono::steady_clock::now() + deadline;
  while (!done(screen_)) {
    if (terminal_ < 0 || std::chrono::steady_clock::now() > end) return false;
    pollfd p{terminal_, POLLIN, 0};
    if (poll(&p, 1, POLL_MS) <= 0) continue;
    char buffer[512];
    const ssize_t n = read(terminal_, buffer, sizeof buffer);
    if (n <= 0) return false;  // the program has ended (EIO on Linux)
    screen_.append(buffer, static_cast<size_t>(n));
  }
  return true;
}

void TerminalProcess::Type(const std::string& keys) {
  if (write(terminal_, keys.data(), keys.size()) != static_cast<ssize_t>(keys.size())) {
    screen_ += "\n[typing failed]\n";
  }
}

int TerminalProcess::Wait(std::chrono::milliseconds deadline) {
  if (pid_ <= 0) return -1;
  const auto end = std::chrono::steady_clock::now() + deadline;
  WaitFor([](const std::string&) { return false; }, deadline);
  int status = 0;
  while (waitpid(pid_, &status, WNOHANG) == 0) {
    if (std::chrono::steady_clock::now() > end) return -1;
    poll(nullptr, 0, POLL_MS);
  }
  pid_ = -1;
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace scopemount::testing
