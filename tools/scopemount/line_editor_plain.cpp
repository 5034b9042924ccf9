// The shell's prompt where libedit is not available (a cross build without
// it): the terminal's own line discipline edits, there is no history.
#include <unistd.h>

#include <cerrno>
#include <cstdio>

#include "line_editor.h"
#include "session.h"

namespace scopemount::cli {

LineEditor::LineEditor() : editor_(nullptr), history_(nullptr) {}

LineEditor::~LineEditor() = default;

LineEditor::Result LineEditor::Read(std::string& line) {
  std::fputs("scopemount> ", stdout);
  std::fflush(stdout);
  line.clear();
  for (;;) {
    if (interrupted) {
      std::printf("\n");
      return Result::Interrupted;
    }
    char byte = 0;
    const ssize_t n = read(STDIN_FILENO, &byte, 1);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return line.empty() ? Result::End : Result::Line;
    if (byte == '\n') return Result::Line;
    line.push_back(byte);
  }
}

}  // namespace scopemount::cli
