// The shell's prompt on a terminal: line editing and history. Ctrl-C at the
// prompt is told apart from the end of input.
#pragma once

#include <string>

struct editline;
struct history;

namespace scopemount::cli {

class LineEditor {
 public:
  enum class Result { Line, Interrupted, End };

  // On the terminal of standard input and output.
  LineEditor();
  ~LineEditor();
  LineEditor(const LineEditor&) = delete;
  LineEditor& operator=(const LineEditor&) = delete;

  // Shows the prompt and reads one line (without its newline); non-empty
  // lines go into the history.
  Result Read(std::string& line);

 private:
  editline* editor_;
  history* history_;
};

}  // namespace scopemount::cli
