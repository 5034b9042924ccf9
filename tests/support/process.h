// Runs a program as a user would: its standard streams on pipes, or on a
// pseudo-terminal (a user's terminal: its width, keys typed, Ctrl-C).
#pragma once

#include <spawn.h>
#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

namespace scopemount::testing {

struct ProcessResult {
  int exitStatus = -1;  // the exit code, or -1 if it did not exit normally
  std::string out;      // standard output
  std::string err;      // standard error (or why the program did not start)
};

// A running program; extra environment entries ("NAME=value") come first.
// With `terminalColumns` > 0 it runs on a pseudo-terminal that wide, and all
// it writes arrives in out(). The destructor closes the streams and reaps
// the program, killed if it has not ended shortly after.
class ChildProcess {
 public:
  ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
               const std::vector<std::string>& environment = {},
               unsigned short terminalColumns = 0);
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // Keys typed, or text written to the input (at a terminal "\x03" is Ctrl-C).
  void Type(const std::string& keys);
  void CloseInput();
  void Interrupt();  // SIGINT, as from Ctrl-C
  // The terminal's new width; the program gets SIGWINCH.
  void Resize(unsigned short columns);
  // Collects the output until `done` holds for the standard output so far,
  // calling `meanwhile` between looks (to serve the test's own sockets).
  // False if the deadline passed or the output closed first.
  bool WaitFor(const std::function<bool(const std::string& out)>& done,
               std::chrono::milliseconds deadline, const std::function<void()>& meanwhile = {});
  bool WaitForText(const std::string& text, std::chrono::milliseconds deadline,
                   const std::function<void()>& meanwhile = {});
  // The exit code once it ended within `deadline`, or -1.
  int WaitForExit(std::chrono::milliseconds deadline);
  // What was collected so far.
  const std::string& out() const { return collected_[0]; }
  const std::string& err() const { return collected_[1]; }
  // Feeds `input` (no more than a pipe holds, 64 KiB) and waits for the
  // end; with `interruptWhenSeen`, interrupts once the output contains it.
  ProcessResult RunToEnd(const std::string& input, const std::string& interruptWhenSeen);

 private:
  bool OpenPipes(posix_spawn_file_actions_t& actions, std::vector<int>& programEnds);
  bool OpenTerminal(unsigned short columns, posix_spawn_file_actions_t& actions,
                    posix_spawnattr_t& attributes);
  void CloseOutputs();
  // Reads what either output has within `timeoutMs`; false once both closed.
  bool Collect(int timeoutMs);
  // True once the program is reaped (waitpid `options`).
  bool Reaped(int options);

  pid_t pid_ = -1;
  int in_ = -1;
  int out_ = -1;
  int err_ = -1;  // -1 on a terminal, where errors come with the output
  int exitStatus_ = -1;
  std::string collected_[2];
};

// How often `part` occurs in `text` (overlapping occurrences count).
inline size_t Occurrences(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

inline bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

inline ProcessResult RunProcess(const std::string& program,
                                const std::vector<std::string>& arguments,
                                const std::string& input = "",
                                const std::vector<std::string>& environment = {},
                                const std::string& interruptWhenSeen = "") {
  return ChildProcess(program, arguments, environment).RunToEnd(input, interruptWhenSeen);
}

}  // namespace scopemount::testing
