#include "line_editor.h"

#include <histedit.h>
#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <cstdio>
#include <cwchar>

#include "session.h"

namespace scopemount::cli {

namespace {

constexpr const char* PROMPT = "scopemount> ";
constexpr int HISTORY_SIZE = 500;

const char* Prompt(EditLine*) { return PROMPT; }

// One character from the terminal, decoded in the user's locale. Ctrl-C
// (SIGINT interrupts the read) ends the line as an error, so the editor
// returns at once instead of reading on; a resize is read through.
int ReadCharacter(EditLine*, wchar_t* character) {
  std::mbstate_t state{};
  for (;;) {
    if (interrupted) return -1;
    char byte = 0;
    const ssize_t n = read(STDIN_FILENO, &byte, 1);
    if (n == 0) return 0;
    if (n < 0) {
      if (errno == EINTR) continue;
      return -1;
    }
    const size_t decoded = std::mbrtowc(character, &byte, 1, &state);
    if (decoded == static_cast<size_t>(-2)) continue;  // more bytes to come
    if (decoded == static_cast<size_t>(-1)) {
      state = {};
      continue;  // not a character in this locale: skipped
    }
    return 1;
  }
}

}  // namespace

LineEditor::LineEditor() {
  // Typed characters are decoded in the user's locale; nothing else of the
  // program depends on LC_CTYPE.
  std::setlocale(LC_CTYPE, "");
  editor_ = el_init("scopemount", stdin, stdout, stderr);
  history_ = ::history_init();
  HistEvent event;
  ::history(history_, &event, H_SETSIZE, HISTORY_SIZE);
  ::history(history_, &event, H_SETUNIQUE, 1);
  el_set(editor_, EL_EDITOR, "emacs");
  el_set(editor_, EL_PROMPT, Prompt);
  el_set(editor_, EL_HIST, ::history, history_);
  el_set(editor_, EL_GETCFN, ReadCharacter);
  el_source(editor_, nullptr);  // the user's ~/.editrc
}

LineEditor::~LineEditor() {
  el_end(editor_);
  ::history_end(history_);
}

LineEditor::Result LineEditor::Read(std::string& line) {
  el_resize(editor_);  // the window may have changed during the last command
  int count = 0;
  const char* text = el_gets(editor_, &count);
  if (interrupted) {
    std::printf("\n");
    return Result::Interrupted;
  }
  if (text == nullptr || count <= 0) return Result::End;
  line.assign(text, static_cast<size_t>(count));
  if (!line.empty() && line.back() == '\n') line.pop_back();
  if (line.find_first_not_of(" \t") != std::string::npos) {
    HistEvent event;
    ::history(history_, &event, H_ENTER, line.c_str());
  }
  return Result::Line;
}

}  // namespace scopemount::cli
