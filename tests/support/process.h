// Runs a program and collects what it printed and how it ended.
#pragma once

#include <string>
#include <vector>

namespace scopemount::testing {

struct ProcessResult {
  int exitStatus = -1;  // the exit code, or -1 if it did not exit normally
  std::string out;      // standard output
  std::string err;      // standard error
};

// Runs `program` with `arguments`, feeding `input` on standard input; extra
// environment entries ("NAME=value") are added to the current environment.
// With `interruptWhenSeen`, the program gets SIGINT (as from Ctrl-C) once
// its standard output contains that text.
ProcessResult RunProcess(const std::string& program, const std::vector<std::string>& arguments,
                         const std::string& input = "",
                         const std::vector<std::string>& environment = {},
                         const std::string& interruptWhenSeen = "");

}  // namespace scopemount::testing
