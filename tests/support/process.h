// Runs a program as a user would: pipes on its standard input, output and
// error, its exit status at the end.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace scopemount::testing {

// A program running with its three standard streams on pipes. The
// destructor closes the pipes and reaps the program.
class ChildProcess {
 public:
  // Extra environment entries ("NAME=value") are added to the current ones.
  ChildProcess(const std::string& program, const std::vector<std::string>& arguments,
               const std::vector<std::string>& environment = {});
  ~ChildProcess();
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  // Empty when the program could not be started, else why not.
  const std::string& spawnError() const { return spawnError_; }
  // Standard output up to the end of the next line (without the newline).
  std::string ReadLine();
  void CloseInput();
  void Interrupt();  // SIGINT, as from Ctrl-C
  // The exit code, or -1 if the program did not exit normally.
  int Wait();

  int input() const { return in_; }
  int output() const { return out_; }
  int error() const { return err_; }
  void CloseOutputs();

 private:
  pid_t pid_ = -1;
  int in_ = -1;
  int out_ = -1;
  int err_ = -1;
  std::string spawnError_;
};

struct ProcessResult {
  int exitStatus = -1;  // the exit code, or -1 if it did not exit normally
  std::string out;      // standard output
  std::string err;      // standard error
};

// Runs `program` to its end, feeding `input` on standard input. With
// `interruptWhenSeen`, the program gets SIGINT once its standard output
// contains that text.
ProcessResult RunProcess(const std::string& program, const std::vector<std::string>& arguments,
                         const std::string& input = "",
                         const std::vector<std::string>& environment = {},
                         const std::string& interruptWhenSeen = "");

}  // namespace scopemount::testing
