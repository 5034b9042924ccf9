// Runs a program on a pseudo-terminal, as at a user's terminal: what it
// writes there, resizes of the window, Ctrl-C.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace scopemount::testing {

class TerminalProcess {
 public:
  // Extra environment entries ("NAME=value") come before the current ones.
  TerminalProcess(const std::string& program, const std::vector<std::string>& arguments,
                  unsigned short columns, const std::vector<std::string>& environment = {});
  ~TerminalProcess();
  TerminalProcess(const TerminalProcess&) = delete;
  TerminalProcess& operator=(const TerminalProcess&) = delete;

  // The program gets SIGWINCH, as when the window changes size.
  void Resize(unsigned short columns);
  // Collects what the program writes until `done` holds for it; false at
  // the deadline or at the end of the output.
  bool WaitFor(const std::function<bool(const std::string& screen)>& done,
               std::chrono::milliseconds deadline);
  // Keys typed at the terminal ("\x03" is Ctrl-C, "\x04" Ctrl-D).
  void Type(const std::string& keys);
  // The exit code once the program has ended (-1 if it did not exit
  // normally or not within the deadline).
  int Wait(std::chrono::milliseconds deadline);
  const std::string& screen() const { return screen_; }

 private:
  pid_t pid_ = -1;
  int terminal_ = -1;
  std::string screen_;
};

}  // namespace scopemount::testing
