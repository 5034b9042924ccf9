// Runs a program as a user would: pipes on its standard input, output and
// error, its exit status at the end.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace scopemount::testing {

struct ProcessResult {
  int exitStatus = -1;  // the exit code, or -1 if it did not exit normally
  std::string out;      // standard output
  std::string err;      // standard error (or why the program did not start)
};

// A program running with its three standard streams on pipes; extra
// environment entries ("NAME=value") are added to the current ones. The
// destructor closes the pipes and reaps the program.
class ChildProcess {
 public:
  ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
               const std::vector<std::string>& environment = {});
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // Standard output up to the end of the next line (without the newline).
  std::string ReadLine();
  void CloseInput();
  void Interrupt();  // SIGINT, as from Ctrl-C
  // The exit code, or -1 if the program did not exit normally.
  int Wait();
  // Feeds `input`, collects both outputs until they close and waits for the
  // end; with `interruptWhenSeen`, interrupts once the output contains it.
  ProcessResult RunToEnd(const std::string& input, const std::string& interruptWhenSeen);

 private:
  void CloseOutputs();

  pid_t pid_ = -1;
  int in_ = -1;
  int out_ = -1;
  int err_ = -1;
  std::string spawnError_;
};

inline ProcessResult RunProcess(const std::string& program,
                                const std::vector<std::string>& arguments,
                                const std::string& input = "",
                                const std::vector<std::string>& environment = {},
                                const std::string& interruptWhenSeen = "") {
  return ChildProcess(program, arguments, environment).RunToEnd(input, interruptWhenSeen);
}

}  // namespace scopemount::testing
