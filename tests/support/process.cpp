#include "support/process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>

extern char** environ;

namespace scopemount::testing {

namespace {

struct Pipe {
  int read = -1;
  int write = -1;
  bool Open() {
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) return false;
    read = fds[0];
    write = fds[1];
    return true;
  }
};

void CloseFd(int& fd) {
  if (fd >= 0) close(fd);
  fd = -1;
}

}  // namespace

ProcessResult RunProcess(const std::string& program, const std::vector<std::string>& arguments,
                         const std::string& input, const std::vector<std::string>& environment,
                         const std::string& interruptWhenSeen) {
  ProcessResult result;
  Pipe in, out, err;
  if (!in.Open() || !out.Open() || !err.Open()) return result;

  std::vector<char*> argv;
  argv.push_back(const_cast<char*>(program.c_str()));
  for (const std::string& a : arguments) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  std::vector<char*> envp;
  for (char** e = environ; *e != nullptr; ++e) envp.push_back(*e);
  for (const std::string& e : environment) envp.push_back(const_cast<char*>(e.c_str()));
  envp.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in.read, 0);
  posix_spawn_file_actions_adddup2(&actions, out.write, 1);
  posix_spawn_file_actions_adddup2(&actions, err.write, 2);
  pid_t pid = -1;
  const int spawned =
      posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  CloseFd(in.read);
  CloseFd(out.write);
  CloseFd(err.write);
  if (spawned != 0) {
    CloseFd(in.write);
    CloseFd(out.read);
    CloseFd(err.read);
    result.err = std::strerror(spawned);
    return result;
  }

  // Feed the input and drain both outputs together so neither pipe fills.
  size_t written = 0;
  bool interruptSent = false;
  if (input.empty()) CloseFd(in.write);
  char buffer[4096];
  while (out.read >= 0 || err.read >= 0) {
    pollfd fds[3] = {{out.read, POLLIN, 0}, {err.read, POLLIN, 0}, {in.write, POLLOUT, 0}};
    if (poll(fds, 3, -1) < 0) break;
    for (int i = 0; i < 2; ++i) {
      if (fds[i].revents == 0) continue;
      int& fd = i == 0 ? out.read : err.read;
      const ssize_t n = read(fd, buffer, sizeof buffer);
      if (n <= 0) {
        CloseFd(fd);
      } else {
        (i == 0 ? result.out : result.err).append(buffer, static_cast<size_t>(n));
      }
    }
    if (!interruptSent && !interruptWhenSeen.empty() && result.out.find(interruptWhenSeen) != std::string::npos) {
      kill(pid, SIGINT);
      interruptSent = true;
    }
    if (in.write >= 0 && fds[2].revents != 0) {
      const ssize_t n = write(in.write, input.data() + written, input.size() - written);
      if (n > 0) written += static_cast<size_t>(n);
      if (n <= 0 || written == input.size()) CloseFd(in.write);
    }
  }
  CloseFd(in.write);
  int status = 0;
  if (waitpid(pid, &status, 0) == pid && WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
  return result;
}

}  // namespace scopemount::testing
