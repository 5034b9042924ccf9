// A program running beside the test: its output is collected while the test
// talks to it, and the test can wait for a line, interrupt it, wait for it to
// end. A program still running when this goes away is killed.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace scopemount::testing {

class BackgroundProcess {
 public:
  BackgroundProcess(const std::string& program, const std::vector<std::string>& arguments);
  ~BackgroundProcess();
  BackgroundProcess(const BackgroundProcess&) = delete;
  BackgroundProcess& operator=(const BackgroundProcess&) = delete;

  // Waits until `done` holds for the standard output, collecting it; calls
  // `meanwhile` between looks (to serve the test's own sockets). False if
  // the deadline passed or the program ended first.
  bool WaitFor(const std::function<bool(const std::string& out)>& done,
               std::chrono::milliseconds deadline, const std::function<void()>& meanwhile = {});
  bool WaitForText(const std::string& text, std::chrono::milliseconds deadline,
                   const std::function<void()>& meanwhile = {});
  // Sends SIGINT, as Ctrl-C does.
  void Interrupt();
  // Waits for the end; the exit code, or -1 (killed, or still running).
  int WaitForExit(std::chrono::milliseconds deadline);

  const std::string& out() const { return out_; }
  const std::string& err() const { return err_; }

 private:
  // Collects what the program printed, waiting up to `timeoutMs` for it.
  void Collect(int timeoutMs);

  pid_t pid_ = -1;
  int outFd_ = -1;
  int errFd_ = -1;
  std::string out_;
  std::string err_;
  int exitStatus_ = -1;
  bool ended_ = false;
};

}  // namespace scopemount::testing
